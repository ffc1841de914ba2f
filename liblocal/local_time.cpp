#include "local_time.h"

#include <algorithm>
#include <cstdio>

namespace qvr {

bool local_fields(std::int64_t time, std::tm &fields) {
  auto native = static_cast<std::time_t>(time);
  return localtime_r(&native, &fields) != nullptr;
}

std::string log_time_text(const std::tm &fields) {
  char text[64];
  int size = std::snprintf(text, sizeof text, "%02d/%02d/%02d %02d:%02d:%02d", fields.tm_mon + 1,
                           fields.tm_mday, (fields.tm_year % 100 + 100) % 100, fields.tm_hour,
                           fields.tm_min, fields.tm_sec);
  return {text, static_cast<std::size_t>(size)};
}

civil_t civil_of(const std::tm &fields) {
  return {std::int64_t{fields.tm_year} + 1900,
          fields.tm_mon + 1,
          fields.tm_mday,
          fields.tm_hour,
          fields.tm_min,
          fields.tm_sec};
}

int month_days(std::int64_t year, int month) {
  static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : days[month - 1];
}

std::int64_t utc_seconds(const civil_t &fields) {
  // Years begin in March here, so that the leap day is the last of its year.
  std::int64_t year = fields.month <= 2 ? fields.year - 1 : fields.year;
  std::int64_t month = (fields.month + 9) % 12;
  std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  std::int64_t of_era = year - era * 400;
  std::int64_t days = era * 146097 + of_era * 365 + of_era / 4 - of_era / 100 +
                      (153 * month + 2) / 5 + fields.day - 1 - 719468;
  return days * 86400 + fields.hour * 3600 + fields.minute * 60 + fields.second;
}

namespace {

// Seconds east of UTC at that moment.
std::int64_t offset_at(std::int64_t time) {
  std::tm fields;
  return local_fields(time, fields) ? fields.tm_gmtoff : 0;
}

}  // namespace

std::int64_t local_seconds(const civil_t &fields) {
  // No zone is more than a day off, so these two see the rules on both sides of a near change.
  std::int64_t utc = utc_seconds(fields);
  std::int64_t before = offset_at(utc - 86400);
  std::int64_t after = offset_at(utc + 86400);
  if (before == after) return utc - before;
  bool before_fits = offset_at(utc - before) == before;
  bool after_fits = offset_at(utc - after) == after;
  if (before_fits == after_fits) {
    return before_fits ? utc - std::min(before, after) : utc - std::max(before, after);
  }
  return before_fits ? utc - before : utc - after;
}

}  // namespace qvr
