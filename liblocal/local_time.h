// Between seconds and the fields of the local calendar, right across changes of daylight time.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace qvr {

// Fields as people write them: month 1 to 12, day from 1.
struct civil_t {
  std::int64_t year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// False when the time has no local form. POSIX localtime_r.
bool local_fields(std::int64_t time, std::tm &fields);
// "MM/DD/YY hh:mm:ss", as logs show a time in every language.
std::string log_time_text(const std::tm &fields);
civil_t civil_of(const std::tm &fields);

int month_days(std::int64_t year, int month);
// Seconds of the fields as UTC. The year lies within 0 to 9999, month and day are valid.
std::int64_t utc_seconds(const civil_t &fields);
// Seconds of the fields as local time. Of two moments with these fields, the later one; fields that
// a change of daylight time leaps over mean the moment that many seconds before the leap.
std::int64_t local_seconds(const civil_t &fields);

}  // namespace qvr
