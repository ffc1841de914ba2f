// The 20-byte identifier of save sets, volumes and clients.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
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

enum class ksui_form { short_form = 2, long_form = 1 };
std::string ksui_text(const ksui &id, ksui_form form);

// Reads an identifier; `rest` (when given) is set behind it. The result is the kind, or -1, which
// leaves the invalid value in `out`.
std::int32_t ksui_parse(std::string_view text, ksui &out, std::string_view *rest = nullptr);

}  // namespace qvr
