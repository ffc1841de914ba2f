// The words of a report: one descriptor a field.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qvr {

enum rpt_type : std::uint32_t {
  RPT_STRING = 1,
  RPT_SIGNED = 2,
  RPT_UNSIGNED = 3,
  RPT_BYTES = 4,
  RPT_KILOBYTES = 5,
  RPT_TIME = 6,
  RPT_FLAGS = 7,
  RPT_LEVEL = 8,
  RPT_NUMBER = 9,
  RPT_ID = 10,
  RPT_DURATION = 11,
};

// What a query may do with a field.
enum mr_flag : std::uint16_t {
  MR_LESS = 0x01,
  MR_EQUAL = 0x02,
  MR_GREATER = 0x04,
  MR_RANGE = 0x08,
  MR_KEYWORD = 0x10,  // the word stands alone; mr_width holds the mask of its bit
  MR_LIST = 0x20,
  MR_MIXED = 0xC0,  // "=" and "!=" may be repeated and mixed
};

inline constexpr std::int16_t RPT_SPACE_ID = -1;
inline constexpr std::int16_t RPT_NEWLINE_ID = -2;

// One field. The texts are translated once, when the catalogue is built.
struct mr_t {
  std::string mr_title;     // column title; in the linear catalogue the text before the value
  std::string mr_longname;  // name in export and XML forms
  std::string_view mr_key;  // keyword, never translated
  std::uint64_t mr_width = 0;
  std::int16_t mr_id = 0;
  std::uint16_t mr_flags = 0;
  rpt_type mr_type = RPT_STRING;
  std::string mr_short;    // title of a narrow column; in the linear catalogue the text behind
  bool has_short = false;  // without it the word cannot stand in a report
};

// A catalogue in its order; descriptors stay where they are for the life of the process.
using field_table = std::span<const mr_t>;

// The first field of that keyword, ignoring case; trailing blanks are dropped, but one character
// always remains. Null when there is none.
const mr_t *rptdata_find(field_table table, std::string_view word);

}  // namespace qvr
