// The argument of -x.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

inline constexpr std::size_t RPT_SPEC_MAX = 1023;  // bytes of an unescaped spec

// Unescapes the argument behind its first letter into `spec`. Returns -1, or the index in the
// argument of the character behind a '%' that is neither "%s" nor "%%".
int rpt_check_spec(std::string_view argument, std::string &spec);

// Cuts a printf string behind each "%s". Returns the number of pieces that end in one, which stand
// in front of the piece that does not, if there is one.
std::uint32_t rpt_split_printf(std::string_view spec, std::vector<std::string> &pieces);

}  // namespace qvr
