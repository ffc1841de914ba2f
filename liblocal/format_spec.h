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

struct fmt_conv_t {
  std::string_view text;  // from the '%' to behind the letter
  char letter = 0;        // 0: the format ended in front of a letter
  fmt_class cls = FMT_UNKNOWN;
  fmt_modifier modifier = FMT_NONE;
  int value_pos = 0;           // positions count from 1
  int width = FMT_ABSENT;      // negative: to the left
  int precision = FMT_ABSENT;  // negative: as if absent
  int width_pos = 0;           // 0: `width` is the value; else it is the int at that position
  int precision_pos = 0;
  bool left = false;
  bool zero = false;
  bool plain_flags = true;  // no flag beside - and 0
  bool known_flags = true;  // none that the platform does not know
  std::size_t flag_count = 0;
  std::array<char, FMT_SPEC_SIZE> flags;  // as they came; those beyond the room are only counted
};

// Reads the conversion that starts at format[at], a '%' that no '%' follows. `position` is the next
// position that a conversion without a number takes; it is moved on. Returns the index behind.
std::size_t fmt_read_conv(std::string_view format, std::size_t at, int &position, fmt_conv_t &conv);

// True when the platform may be given the conversion with a value of its class; otherwise it prints
// its own text.
bool fmt_conv_is_safe(const fmt_conv_t &conv);

}  // namespace qvr
