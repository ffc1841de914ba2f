// How many cells of a terminal a text takes.
#pragma once

#include <cstddef>
#include <string_view>

namespace qvr {

// One character of UTF-8: its bytes and its cells, told by its first bytes.
struct char_cells_t {
  unsigned char bytes;
  unsigned char cells;
};

// The character at the start of a non-empty text. A text that ends inside the character counts as
// the whole character; its bytes are then cut to what is there.
char_cells_t i18n_char_cells(std::string_view text);

// The cells of a text; of its first `count` characters. Any thread; no locale.
std::size_t i18n_strwidth(std::string_view text);
std::size_t i18n_strnwidth(std::string_view text, std::size_t count);

// wcswidth (POSIX) of at most `count` characters of a text in the locale's encoding; -1 when it
// cannot be converted or holds a character that has no width.
int i18n_wcswidth(const char *text, std::size_t count);

}  // namespace qvr
