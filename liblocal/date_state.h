// What a date text has said, item by item.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

namespace qvr {

// How daylight time applies to the fields of a date.
enum date_dst : int { DST_ON = 1, DST_OFF = 2, DST_BY_RULES = 3 };

// The clock that an hour is told on.
enum date_meridian : int { CLOCK_AM = 1, CLOCK_PM = 2, CLOCK_24 = 24 };

// Which item has set pd_day_ordinal, for the `every` forms.
enum class ordinal_of { nothing, weekday, whole_day };

struct date_state {
  std::int64_t base = 0;

  std::int64_t pd_year = 0, pd_month = 0, pd_day = 0;
  std::int64_t pd_hour = 0, pd_minutes = 0, pd_seconds = 0;
  int pd_meridian = CLOCK_24;
  std::int64_t pd_zone = 0;    // minutes west of UTC, without daylight time
  bool pd_zone_named = false;  // the text has named a zone of its own
  int pd_dst = DST_BY_RULES;
  std::int64_t pd_start = 0;  // a number too large for a time of day replaces it
  std::int64_t pd_rel_seconds = 0, pd_rel_months = 0;
  std::int64_t pd_day_ordinal = 0, pd_day_number = 0;
  std::int64_t pd_every_minutes = 0, pd_every_months = 0;

  int pd_have_time = 0, pd_have_zone = 0, pd_have_date = 0, pd_have_day = 0;
  int pd_have_rel = 0, pd_have_every = 0;
  int pd_rel_days = 0;  // "today", "tomorrow", "yesterday"

  // What the `every` forms look back on.
  std::int64_t last_month_unit = 0;  // of the last relative item; one of the two is 0
  std::int64_t last_minute_unit = 0;
  ordinal_of ordinal = ordinal_of::nothing;

  bool local_daylight = false;  // at the base time
  bool invalid = false;         // an item contradicts itself or leaves 64 bits
};

// The state of a parse that has read nothing: the day of `base`, midnight, the local zone.
date_state date_begin(std::int64_t base, const std::tm &local);

// Reads the items of the text into `state`, from left to right. Where a text can be cut into items
// in several ways, the longer item wins unless the rest then makes no sense. False when it cannot
// be cut at all. No recursion; time and memory grow with the length of the text.
bool date_parse(std::string_view text, std::string_view local_zone, date_state &state);

}  // namespace qvr
