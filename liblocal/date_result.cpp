// From the items of a date text to its time.
#include <algorithm>
#include <mutex>
#include <optional>
#include <string>

#include "date_state.h"
#include "dates.h"
#include "local_time.h"

namespace qvr {

namespace {

using moment = std::optional<std::int64_t>;  // none: no such time

constexpr std::int64_t DAY = 86400;
constexpr std::int64_t FARTHEST = 0xfffeae7f;  // from the base: 2^32 seconds less a day and one

// ---- A time from the fields of a date.

struct date_fields_t {
  civil_t civil;
  int meridian = CLOCK_24;
  bool local = true;  // by the rules of the local zone
  std::int64_t zone = 0;
  int dst = DST_BY_RULES;
};

bool hour_on_clock(int &hour, int meridian) {
  if (meridian == CLOCK_24) return hour >= 0 && hour <= 23;
  if (hour < 1 || hour > 12) return false;
  hour = hour % 12 + (meridian == CLOCK_PM ? 12 : 0);
  return true;
}

moment in_named_zone(std::int64_t utc, const date_fields_t &fields) {
  if (fields.zone < -DAY / 60 || fields.zone > DAY / 60) return {};
  std::int64_t time = utc + fields.zone * 60;
  std::tm local;
  if (!local_fields(time, local)) return {};
  bool daylight = fields.dst == DST_BY_RULES ? local.tm_isdst > 0 : fields.dst == DST_ON;
  return daylight ? time - 3600 : time;
}

moment from_fields(date_fields_t fields, std::int64_t base_year) {
  civil_t &c = fields.civil;
  if (c.minute < 0 || c.minute > 59 || c.second < 0 || c.second > 59) return {};
  if (!hour_on_clock(c.hour, fields.meridian)) return {};
  if (c.year < 0) c.year = -c.year;
  if (c.year < 100) {
    c.year += base_year - base_year % 100;
  } else if (c.year < 1970) {
    c.year += 1900;
  }
  if (c.year > 9999 || c.month < 1 || c.month > 12) return {};
  if (c.day < 1 || c.day > month_days(c.year, c.month)) return {};
  moment time = fields.local ? local_seconds(c) : in_named_zone(utc_seconds(c), fields);
  if (!time || *time < 0 || *time > time_now() + 0xffffffffLL) return {};
  return time;
}

// Numbers of a text are cut to what no field can be, so that they stay wrong.
int field_number(std::int64_t value) {
  return static_cast<int>(std::clamp<std::int64_t>(value, -10000, 10000));
}

moment start_from_fields(const date_state &s, std::int64_t base_year) {
  date_fields_t fields;
  fields.civil = {std::clamp<std::int64_t>(s.pd_year, -10000, 10000),
                  field_number(s.pd_month),
                  field_number(s.pd_day),
                  field_number(s.pd_hour),
                  field_number(s.pd_minutes),
                  field_number(s.pd_seconds)};
  fields.meridian = s.pd_meridian;
  fields.zone = s.pd_zone;
  fields.dst = s.pd_dst;
  fields.local = !s.pd_zone_named && s.pd_dst == DST_BY_RULES;
  return from_fields(fields, base_year);
}

// ---- Moves that keep the local clock.

int utc_hour(std::int64_t time) {
  std::int64_t of_day = time % DAY;
  return static_cast<int>((of_day < 0 ? of_day + DAY : of_day) / 3600);
}

// What a move from `start` to `future` lacks, so that the local clock moves as told.
moment corrected(std::int64_t start, std::int64_t future, bool whole_days) {
  std::tm from, to;
  if (!local_fields(start, from) || !local_fields(future, to)) return {};
  std::int64_t shift = from.tm_gmtoff - to.tm_gmtoff;
  if (!whole_days) return from.tm_isdst == to.tm_isdst ? future : future + shift;
  if (from.tm_hour == to.tm_hour && from.tm_min == to.tm_min) return future;
  if (from.tm_isdst != to.tm_isdst) return future + shift;
  int hours = utc_hour(start) - utc_hour(future);
  if (hours > 12) hours -= 24;
  if (hours < -12) hours += 24;
  return future + hours * 3600;
}

moment by_seconds(std::int64_t start, std::int64_t seconds) {
  std::int64_t future;
  if (__builtin_add_overflow(start, seconds, &future)) return {};
  return corrected(start, future, seconds % DAY == 0);
}

moment by_months(std::int64_t start, std::int64_t months, std::int64_t base_year) {
  constexpr std::int64_t most = 12 * 10000;
  std::tm local;
  if (months < -most || months > most || !local_fields(start, local)) return {};
  date_fields_t fields;
  fields.civil = civil_of(local);
  std::int64_t month = fields.civil.year * 12 + local.tm_mon + months;
  if (month < 0 || (months < 0 && month < 1970 * 12)) return {};
  fields.civil.year = month / 12;
  fields.civil.month = static_cast<int>(month % 12) + 1;
  fields.civil.day = std::min(fields.civil.day, month_days(fields.civil.year, fields.civil.month));
  moment future = from_fields(fields, base_year);
  return future ? corrected(start, *future, true) : future;
}

moment by_days(std::int64_t start, std::int64_t days) {
  std::int64_t seconds;
  if (__builtin_mul_overflow(days, DAY, &seconds)) return {};
  std::int64_t future;
  if (__builtin_add_overflow(start, seconds, &future)) return {};
  return corrected(start, future, true);
}

moment to_weekday(std::int64_t start, const date_state &s) {
  constexpr std::int64_t most_weeks = 0x100000000 / DAY;
  std::tm local;
  if (!local_fields(start, local)) return {};
  std::int64_t ordinal = s.pd_day_ordinal;
  if (ordinal < -most_weeks || ordinal > most_weeks) return {};
  std::int64_t days = (s.pd_day_number - local.tm_wday + 7) % 7;
  if (days == 0 && ordinal == 1 && s.pd_have_every == 0) ordinal = 2;
  days += 7 * (ordinal >= 1 ? ordinal - 1 : ordinal);
  return by_days(start, days);
}

// ---- The loop over the periods of `every`.

struct base_t {
  std::int64_t time = 0;
  std::int64_t year = 0;      // local
  std::int64_t midnight = 0;  // of the local day
};

// One round: the start, moved as the relative items and the day of the week say.
moment place(const date_state &s, const base_t &base) {
  bool fields =
      s.pd_have_date || s.pd_have_time || s.pd_have_day || s.pd_have_every || s.pd_rel_days;
  moment start = fields ? start_from_fields(s, base.year) : base.time;
  if (start && s.pd_rel_seconds != 0) start = by_seconds(*start, s.pd_rel_seconds);
  if (start && s.pd_rel_months != 0) start = by_months(*start, s.pd_rel_months, base.year);
  if (!start || *start == TIME_FAILED) return {};
  if (*start > base.time && s.pd_rel_months < 0) return {};
  if (s.pd_have_day && !s.pd_have_date) start = to_weekday(*start, s);
  return start;
}

// Adds the periods to the relative sums: one, or as many as cannot reach the limit yet. A move to
// a day of the week takes less than two weeks off what the sums say.
bool next_period(date_state &s, std::int64_t start, std::int64_t limit) {
  constexpr std::int64_t margin = 21 * DAY;
  std::int64_t step = 0;
  if (__builtin_mul_overflow(s.pd_every_minutes, 60, &step)) return false;
  std::int64_t skipped = step;
  if (step > 0 && s.pd_every_months == 0 && limit - start > margin) {
    skipped = std::max<std::int64_t>(1, (limit - start - margin) / step) * step;
  }
  return !__builtin_add_overflow(s.pd_rel_seconds, skipped, &s.pd_rel_seconds) &&
         !__builtin_add_overflow(s.pd_rel_months, s.pd_every_months, &s.pd_rel_months);
}

moment one_period(const date_state &s, std::int64_t start, const base_t &base) {
  std::int64_t seconds;
  if (__builtin_mul_overflow(s.pd_every_minutes, 60, &seconds)) return {};
  moment next = seconds == 0 ? moment(start) : by_seconds(start, seconds);
  if (next && s.pd_every_months != 0) next = by_months(*next, s.pd_every_months, base.year);
  return next;
}

// A period that leads backwards never ends at the limit.
moment every(date_state &s, const base_t &base) {
  for (;;) {
    moment start = place(s, base);
    if (!start || *start >= base.midnight) return start;
    if (!s.pd_have_day) return one_period(s, *start, base);
    if (s.pd_every_minutes < 0 || s.pd_every_months < 0) return {};
    if (!next_period(s, *start, base.midnight)) return {};
  }
}

moment last_of_month(std::int64_t time) {
  std::tm local;
  if (!local_fields(time, local)) return {};
  civil_t civil = civil_of(local);
  return by_days(time, month_days(civil.year, civil.month) - civil.day);
}

// ---- The parse as a whole.

bool counts_fit(const date_state &s) {
  if (s.pd_have_time > 1 || s.pd_have_zone > 1 || s.pd_have_date > 1 || s.pd_have_day > 1 ||
      s.pd_have_every > 1) {
    return false;
  }
  if (s.pd_have_every && s.pd_have_date) return false;
  return !s.pd_have_zone || (s.pd_have_time && !s.pd_have_rel);
}

std::uint32_t flags_of(const date_state &s) {
  std::uint32_t flags = 0;
  if (s.pd_have_date) flags |= DATE_HAS_DATE;
  if (s.pd_have_day) flags |= DATE_HAS_DAY;
  if (s.pd_have_every) flags |= DATE_HAS_EVERY;
  if (s.pd_have_rel) flags |= DATE_HAS_REL;
  if (s.pd_have_time) flags |= DATE_HAS_TIME;
  if (s.pd_have_zone) flags |= DATE_HAS_ZONE;
  return flags;
}

moment result_of(date_state &s, const base_t &base) {
  if (s.invalid || !counts_fit(s)) return {};
  if (s.pd_start != s.base) return s.pd_start;
  if (!s.pd_have_every) return place(s, base);
  bool last_day =
      s.pd_every_months != 0 && s.pd_rel_seconds != 0 && s.pd_have_rel && s.pd_day_ordinal == -1;
  moment result = every(s, base);
  return result && last_day ? last_of_month(*result) : result;
}

// One parse at a time.
std::mutex parse_mutex;

}  // namespace

std::int64_t qvr_getdate_from(std::string_view text, std::int64_t base, std::uint32_t *flags) {
  if (flags != nullptr) *flags = 0;
  if (text == "forever") return TIME_FOREVER;
  std::lock_guard lock(parse_mutex);
  std::tm local;
  if (!local_fields(base, local)) return TIME_FAILED;
  date_state state = date_begin(base, local);
  bool parsed = date_parse(text, local.tm_zone, state);
  if (flags != nullptr) *flags = flags_of(state);
  if (!parsed) return TIME_FAILED;
  base_t from{base, civil_of(local).year, 0};
  from.midnight = local_seconds({from.year, local.tm_mon + 1, local.tm_mday, 0, 0, 0});
  moment result = result_of(state, from);
  std::int64_t farthest;
  if (__builtin_add_overflow(base, FARTHEST, &farthest)) farthest = TIME_FOREVER;
  return !result || *result > farthest ? TIME_FAILED : *result;
}

std::int64_t qvr_getdate(std::string_view text) {
  return qvr_getdate_from(text, time_now());
}

std::int64_t qvr_getdate_end_from(std::string_view text, std::int64_t now) {
  std::uint32_t flags = 0;
  std::int64_t result = qvr_getdate_from(text, now, &flags);
  if (result == TIME_FAILED || (flags & DATE_HAS_TIME) != 0) return result;
  if (result >= now - (DAY - 1)) return result;
  // Which day is meant shows in the distance from now, or from the midnight ahead of now. A time of
  // day that a change of daylight time lies behind is left alone.
  std::int64_t to_midnight = time_end_of_day(now) + 1 - now;
  if ((now - result) % DAY == 0) return result + to_midnight - 1;
  std::int64_t off = (now + to_midnight - result) % DAY;
  std::tm day;  // where daylight time is not an hour, only the clock shows a midnight
  bool midnight =
      local_fields(result, day) && day.tm_hour == 0 && day.tm_min == 0 && day.tm_sec == 0;
  bool whole = off == 0 || off == 3600 || off == DAY - 3600;
  return whole || midnight ? result + DAY - 1 : result;
}

std::int64_t qvr_getdate_end(std::string_view text) {
  return qvr_getdate_end_from(text, time_now());
}

}  // namespace qvr
