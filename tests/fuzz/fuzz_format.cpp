// A format and its arguments from the input: the engine stays inside its buffers, never follows a
// pointer that nobody passed, and a bounded result is the start of the unbounded one.
#include <cstring>
#include <vector>

#include "format.h"
#include "fuzz.h"

namespace {

// Values are made of the bytes behind the format; strings point into the input.
struct bytes_cursor_t : qvr::fmt_cursor_t {
  std::string_view rest;
  int asked = 0;

  std::uint64_t number() {
    std::uint64_t value = 0;
    std::size_t size = std::min(rest.size(), sizeof value);
    std::memcpy(&value, rest.data(), size);
    rest.remove_prefix(size);
    return value;
  }
};

template <int cls>
void fetch(qvr::fmt_slot_t &slot, qvr::fmt_cursor_t &cursor, const char *) {
  auto &bytes = static_cast<bytes_cursor_t &>(cursor);
  bytes.asked++;
  std::memset(&slot, 0xee, sizeof slot);
  switch (cls) {
    case qvr::FMT_TEXT: {
      std::size_t size = bytes.number() & 0x7f;
      std::string_view text = bytes.rest.substr(0, size);
      bytes.rest.remove_prefix(text.size());
      slot.s = {text.empty() ? nullptr : text.data(), text.size()};
      break;
    }
    case qvr::FMT_DOUBLE: {
      std::uint64_t bits = bytes.number();
      std::memcpy(&slot.d, &bits, sizeof slot.d);
      break;
    }
    case qvr::FMT_LDOUBLE:
      slot.ld = static_cast<long double>(static_cast<std::int64_t>(bytes.number()));
      break;
    case qvr::FMT_UNKNOWN:
    case qvr::FMT_INT:
    case qvr::FMT_UINT:
      slot.u = static_cast<unsigned>(bytes.number());
      break;
    default:
      slot.ll = static_cast<long long>(bytes.number());
      break;
  }
}

const qvr::fmt_source_t source = {fetch<0>, fetch<1>, fetch<2>, fetch<3>, fetch<4>,
                                  fetch<5>, fetch<6>, fetch<7>, fetch<8>, fetch<9>};

void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

void fuzz(std::string_view input) {
  std::string_view format = input.substr(0, std::min<std::size_t>(input.find('\0'), 200));
  bytes_cursor_t start;
  start.rest = input.substr(std::min(format.size() + 1, input.size()));

  bytes_cursor_t cursor = start;
  std::unique_ptr<char[]> grown;
  std::size_t length = qvr::i18n_vsnprintf(nullptr, 0, &grown, source, nullptr, format, cursor);
  check(cursor.asked <= 255);
  check(grown == nullptr ? length == 0 : grown[length] == '\0');

  for (std::size_t capacity : {1u, 7u, 65u, 300u, 5000u}) {
    std::vector<char> buffer(capacity, '#');
    cursor = start;
    std::size_t part =
        qvr::i18n_vsnprintf(buffer.data(), capacity, nullptr, source, nullptr, format, cursor);
    check(part < capacity && buffer[part] == '\0');
    // Widths are clamped to the room, which only shows in a result that does not fit it.
    if (grown != nullptr && length + 64 < capacity) {
      check(part <= length && std::memcmp(buffer.data(), grown.get(), part) == 0);
    }
  }
}
