// The 20-byte identifier of save sets, volumes and clients.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace qvr {

enum ksui_kind : std::int32_t {
  KSUI_INVALID = -1,
  KSUI_NULL = 0,
  KSUI_NUMBER = 1,  // typed by a user: only the short id is known
  KSUI_VOLUME_OLD = 2,
  KSUI_SAVESET_OLD = 3,
  KSUI_CLIENT = 4,
  KSUI_VOLUME = 5,
  KSUI_SAVESET = 6,
  KSUI_BARE = 9,
  KSUI_STORAGE = 17,  // words 1 and 3 hold a 64-bit save time
};

// Five words in network byte order, as they lie on the wire.
struct ksui {
  std::array<std::uint8_t, 20> bytes{};

  std::uint32_t word(int i) const {
    std::uint32_t value;
    std::memcpy(&value, bytes.data() + 4 * i, 4);
    return __builtin_bswap32(value);
  }
  void set_word(int i, std::uint32_t value) {
    value = __builtin_bswap32(value);
    std::memcpy(bytes.data() + 4 * i, &value, 4);
  }
  std::int32_t kind() const { return static_cast<std::int32_t>(word(0)); }
  bool is_null() const { return bytes == std::array<std::uint8_t, 20>{}; }
  bool is_invalid() const;
  // Every byte counts; the order that a report means is ksui_cmp.
  bool operator==(const ksui &) const = default;
};

inline constexpr std::size_t KSUI_LONG_LENGTH = 53;

// Below, equal to or above zero: by the short id when either is only a number, by the first 16
// bytes when either is of an old kind, by all 20 otherwise.
int ksui_cmp(const ksui &a, const ksui &b);

inline constexpr ksui ksui_invalid() {
  ksui id;
  id.bytes.fill(0xff);
  return id;
}
inline bool ksui::is_invalid() const {
  return *this == ksui_invalid();
}

// The identifier that a user types as a bare number.
inline ksui ksui_from_number(std::uint32_t number) {
  ksui id;
  id.set_word(0, KSUI_NUMBER);
  id.set_word(1, number);
  return id;
}

// Short: the decimal number. Long: 53 characters, a checksum and the five words in hexadecimal.
// Kinds -1, 0 and 1 have only a short form, kinds that a user never types only a long one.
enum class ksui_form { short_form = 2, long_form = 1 };
std::string ksui_text(const ksui &id, ksui_form form);
// The same text in the next of the thread's twenty buffers; nobody frees it.
const char *ksui_ring_text(const ksui &id, ksui_form form);
// Writes the text and a NUL to `out`, cut to its room; the result is the number of characters.
std::size_t ksui_to_text(const ksui &id, ksui_form form, std::span<char> out);

// Reads an identifier behind leading white space: a long form whose checksum is right, or else a
// decimal number. `rest` (when given) is set behind it. The result is the kind, or -1, which leaves
// the invalid value in `out`.
std::int32_t ksui_parse(std::string_view text, ksui &out, std::string_view *rest = nullptr);

// The whole text is a save set's identifier, with "/" and a decimal clone id behind it if the
// caller gives room for one (0 when the text has none). False leaves the invalid value in `out`.
bool ssid_parse(std::string_view text, ksui &out, std::int64_t *cloneid = nullptr);
// The whole text is a volume's identifier. False leaves the invalid value in `out`.
bool volid_parse(std::string_view text, ksui &out);
// The whole text is a client id: a long form of exactly 53 characters and of kind 4.
bool clientid_parse(std::string_view text, ksui &out);

}  // namespace qvr
