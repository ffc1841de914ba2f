// Save levels: their numbers and names.
#pragma once

#include <cstdint>
#include <string_view>

namespace qvr {

enum ss_level : std::int32_t {
  LEVEL_FULL = 0,
  LEVEL_INCR = 10,
  LEVEL_CONSOLIDATE = 11,
  LEVEL_TXNLOG = 12,
  LEVEL_SKIP = -1,
  LEVEL_MANUAL = -2,  // also what an unknown name gives
  LEVEL_MIGRATION = -3,
  LEVEL_OLD_CONSOLIDATE = -8,
  LEVEL_SYNTH_FULL = -9,
  LEVEL_INCR_SYNTH_FULL = -10,
  LEVEL_EXEC = -11,
};

// The name of a level; manual has none. Numbers without a name are "incr" above and "full" below
// zero. The text is constant, NUL-terminated and lives for ever. Any thread.
std::string_view level_name(std::int32_t level);
// The same with "manual" for manual, as a report prints it.
std::string_view level_report_name(std::int32_t level);

// The number of a name or of any leading part of it, in any case; LEVEL_MANUAL when there is none.
// A space or newline ends the name. Any thread.
std::int32_t level_parse(std::string_view text);

}  // namespace qvr
