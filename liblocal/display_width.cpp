#include "display_width.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <vector>

namespace qvr {

namespace {

constexpr std::array<char_cells_t, 256> by_first_byte = [] {
  std::array<char_cells_t, 256> table{};
  for (unsigned byte = 0; byte < 256; byte++) {
    table[byte] = byte < 0xC0   ? char_cells_t{1, 1}
                  : byte < 0xE0 ? char_cells_t{2, 1}
                  : byte < 0xE3 ? char_cells_t{3, 1}
                  : byte < 0xF0 ? char_cells_t{3, 2}
                  : byte < 0xF8 ? char_cells_t{4, 2}
                  : byte < 0xFC ? char_cells_t{5, 2}
                                : char_cells_t{6, 2};
  }
  return table;
}();

// The characters behind 0xEF: ideographs and full-width forms take two cells, private, Arabic and
// half-width forms one.
unsigned char cells_behind_ef(unsigned char second, unsigned char third) {
  if (second <= 0xAB || second == 0xBC) return 2;
  if (second == 0xBD && third <= 0x9F) return 2;
  if (second == 0xBF && third >= 0xA0 && third <= 0xA7) return 2;
  return 1;
}

}  // namespace

char_cells_t i18n_char_cells(std::string_view text) {
  auto byte = [&](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : static_cast<unsigned char>(0);
  };
  char_cells_t result = by_first_byte[byte(0)];
  if (byte(0) == 0xEF) result.cells = cells_behind_ef(byte(1), byte(2));
  if (result.bytes > text.size()) result.bytes = static_cast<unsigned char>(text.size());
  return result;
}

std::size_t i18n_strnwidth(std::string_view text, std::size_t count) {
  std::size_t cells = 0;
  for (; count > 0 && !text.empty(); count--) {
    char_cells_t next = i18n_char_cells(text);
    cells += next.cells;
    text.remove_prefix(next.bytes);
  }
  return cells;
}

std::size_t i18n_strwidth(std::string_view text) {
  std::size_t cells = 0, at = 0;
  while (at < text.size()) {
    // Eight bytes of plain text at a time.
    for (std::uint64_t word; text.size() - at >= sizeof word; at += sizeof word) {
      std::memcpy(&word, text.data() + at, sizeof word);
      if ((word & 0x8080808080808080u) != 0) break;
      cells += sizeof word;
    }
    if (at == text.size()) break;
    char_cells_t next = by_first_byte[static_cast<unsigned char>(text[at])];
    if (next.bytes > 1) next = i18n_char_cells(text.substr(at));
    cells += next.cells;
    at += next.bytes;
  }
  return cells;
}

int i18n_wcswidth(const char *text, std::size_t count) {
  std::size_t length = std::mbstowcs(nullptr, text, 0);
  if (length == static_cast<std::size_t>(-1)) return -1;
  std::vector<wchar_t> wide(length + 1);
  if (std::mbstowcs(wide.data(), text, length + 1) == static_cast<std::size_t>(-1)) return -1;
  return ::wcswidth(wide.data(), count);
}

}  // namespace qvr
