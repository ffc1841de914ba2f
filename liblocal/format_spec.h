// One conversion of a format, read into a value. Both walks of the engine read with this, so that
// what is fetched and what is printed cannot disagree.
#pragma once

#include <array>
#include <climits>
#include <cstdint>
#include <string_view>

#include "format.h"

namespace qvr {

inline constexpr int FMT_ABSENT = INT_MIN;  // a width or precision that is not there

enum fmt_modifier : std::uint8_t { FMT_NONE, FMT_H, FMT_HH, FMT_L, FMT_LL, FMT_BIG_L };

enum fmt_flag : std::uint8_t {
  FMT_LEFT = 1,        // -
  FMT_ZERO = 2,        // 0
  FMT_PLUS = 4,        // +
  FMT_BLANK = 8,       // a blank
  FMT_ALTERNATE = 16,  // #
  FMT_GROUPED = 32,    // '
  FMT_FOREIGN = 64,    // one that the platform does not know
};
inline constexpr std::string_view FMT_FLAG_CHARS = "-0+ #'";  // in the order of the bits

// Trivial, so that room for many costs nothing until they are read.
struct fmt_conv_t {
  std::string_view text;   // from the '%' to behind the letter
  std::size_t flag_count;  // as they came, with repetitions and those that nobody knows
  int value_pos;           // positions count from 1
  int width;               // negative: to the left
  int precision;           // negative: as if absent
  int width_pos;           // 0: `width` is the value; else it is the int at that position
  int precision_pos;
  int next_pos;  // position of a conversion behind this one that has no number
  char letter;   // 0: the format ended in front of a letter
  fmt_class cls;
  fmt_modifier modifier;
  std::uint8_t flags;  // fmt_flag bits
};

// Reads the conversion that starts at format[at], a '%' that no '%' follows. `position` is the next
// position that a conversion without a number takes; it is moved on. Returns the index behind.
std::size_t fmt_read_conv(std::string_view format, std::size_t at, int &position, fmt_conv_t &conv);

// True when the platform may be given the conversion with a value of its class; otherwise it prints
// its own text.
bool fmt_conv_is_safe(const fmt_conv_t &conv);

}  // namespace qvr
