// The grammar of dates: a row for each form of each item.
#include <string>
#include <vector>

#include "date_lexer.h"
#include "date_state.h"

namespace qvr {

namespace {

using values = const std::int64_t *;  // of the item's tokens

// Sums that leave 64 bits mean no date.
void add(date_state &s, std::int64_t &to, std::int64_t count, std::int64_t unit) {
  std::int64_t product;
  if (__builtin_mul_overflow(count, unit, &product) || __builtin_add_overflow(to, product, &to)) {
    s.invalid = true;
  }
}

// ---- A number by itself.

void number(date_state &s, values v) {
  constexpr std::int64_t first_beyond_clock = 2360;
  if (s.pd_have_time > 0 && s.pd_have_date > 0 && s.pd_have_rel == 0) {
    s.pd_year = v[0];
  } else if (v[0] < first_beyond_clock) {
    s.pd_hour = v[0] / 100;
    s.pd_minutes = v[0] % 100;
    s.pd_seconds = 0;
    s.pd_meridian = CLOCK_24;
    s.pd_have_time++;
  } else {
    s.pd_start = v[0];
  }
}

// ---- Times of day.

void time_fields(date_state &s, std::int64_t hour, std::int64_t minutes, int meridian) {
  s.pd_hour = hour;
  s.pd_minutes = minutes;
  s.pd_meridian = meridian;
}

void hour_meridian(date_state &s, values v) {
  time_fields(s, v[0], 0, static_cast<int>(v[1]));
  s.pd_seconds = 0;
}
void hour_minutes(date_state &s, values v) {
  time_fields(s, v[0], v[2], CLOCK_24);
}
void hour_minutes_meridian(date_state &s, values v) {
  time_fields(s, v[0], v[2], static_cast<int>(v[3]));
}
void hour_minutes_year(date_state &s, values v) {
  time_fields(s, v[0], v[2], CLOCK_24);
  s.pd_year = v[3];
  s.pd_dst = DST_BY_RULES;
}
void hour_seconds(date_state &s, values v) {
  time_fields(s, v[0], v[2], CLOCK_24);
  s.pd_seconds = v[4];
}
void hour_seconds_meridian(date_state &s, values v) {
  time_fields(s, v[0], v[2], static_cast<int>(v[5]));
  s.pd_seconds = v[4];
}
void hour_seconds_year(date_state &s, values v) {
  hour_seconds(s, v);
  s.pd_year = v[5];
  s.pd_dst = DST_BY_RULES;
}

// ---- Zones.

void zone_set(date_state &s, std::int64_t zone, int dst) {
  s.pd_zone = zone;
  s.pd_zone_named = true;
  s.pd_dst = dst;
}

std::int64_t clock_offset(date_state &s, values v) {
  std::int64_t minutes = v[2];
  add(s, minutes, v[0], 60);
  return s.invalid ? 0 : minutes;
}
std::int64_t number_offset(values v) {
  return v[0] / 100 * 60 + v[0] % 100;
}

void zone_word(date_state &s, values v) {
  zone_set(s, v[0], DST_OFF);
}
void zone_daylight(date_state &s, values v) {
  zone_set(s, v[0], DST_ON);
}
void zone_local(date_state &s, values) {
  s.pd_dst = s.local_daylight ? DST_BY_RULES : DST_OFF;
}
void zone_plus_clock(date_state &s, values v) {
  zone_set(s, -clock_offset(s, v + 1), DST_OFF);
}
void zone_plus_number(date_state &s, values v) {
  zone_set(s, -number_offset(v + 1), DST_OFF);
}
void zone_minus_clock(date_state &s, values v) {
  zone_set(s, clock_offset(s, v + 1), DST_OFF);
}
void zone_minus_number(date_state &s, values v) {
  zone_set(s, number_offset(v + 1), DST_OFF);
}
void zone_gmt(date_state &s, values) {
  zone_set(s, 0, DST_OFF);
}

// ---- Days of the week.

void day_next(date_state &s, values v) {
  s.pd_day_ordinal = 1;
  s.pd_day_number = v[0];
  s.ordinal = ordinal_of::nothing;
}
void day_counted(date_state &s, values v) {
  s.pd_day_ordinal = v[0];
  s.pd_day_number = v[1];
  s.ordinal = ordinal_of::weekday;
}

// ---- Dates.

void date_fields(date_state &s, std::int64_t month, std::int64_t day) {
  s.pd_month = month;
  s.pd_day = day;
}

void date_slash(date_state &s, values v) {
  date_fields(s, v[0], v[2]);
}
void date_slash_year(date_state &s, values v) {
  date_fields(s, v[0], v[2]);
  s.pd_year = v[4];
}
void date_month_day(date_state &s, values v) {
  date_fields(s, v[0], v[1]);
}
void date_month_day_year(date_state &s, values v) {
  date_fields(s, v[0], v[1]);
  s.pd_year = v[3];
}
void date_day_month(date_state &s, values v) {
  date_fields(s, v[1], v[0]);
}
void date_day_month_year(date_state &s, values v) {
  date_fields(s, v[1], v[0]);
  s.pd_year = v[2];
}

// ---- Relative times.

constexpr std::int64_t DAY_MINUTES = 1440;

void rel_minutes(date_state &s, std::int64_t count, std::int64_t unit) {
  add(s, s.pd_rel_seconds, count, unit * 60);
}
void whole_days(date_state &s, std::int64_t count, std::int64_t unit) {
  if (unit != DAY_MINUTES) return;
  s.pd_day_ordinal = count;
  s.ordinal = ordinal_of::whole_day;
}
void rel_months(date_state &s, std::int64_t count, std::int64_t unit) {
  add(s, s.pd_rel_months, count, unit);
  s.last_month_unit = unit;
  s.last_minute_unit = 0;
}

void rel_number_minutes(date_state &s, values v) {
  rel_minutes(s, v[0], v[1]);
  whole_days(s, v[0], v[1]);
}
void rel_ordinal_minutes(date_state &s, values v) {
  rel_minutes(s, v[0] - 1, v[1]);
  whole_days(s, v[0], v[1]);
  s.last_minute_unit = v[1];
  s.last_month_unit = 0;
}
void rel_number_months(date_state &s, values v) {
  rel_months(s, v[0], v[1]);
  s.pd_day = 1;
}
void rel_ordinal_months(date_state &s, values v) {
  rel_months(s, v[0] - 1, v[1]);
  s.pd_day = 1;
}
void rel_number_seconds(date_state &s, values v) {
  add(s, s.pd_rel_seconds, v[0], 1);
}
void rel_ordinal_seconds(date_state &s, values v) {
  add(s, s.pd_rel_seconds, v[0] - 1, 1);
}
void rel_one_minute_unit(date_state &s, values v) {
  rel_minutes(s, 1, v[0]);
}
void rel_one_day(date_state &s, values v) {
  rel_minutes(s, 1, v[0]);
  s.pd_rel_days++;
}
void rel_one_month_unit(date_state &s, values v) {
  rel_months(s, 1, v[0]);
}
void rel_one_second(date_state &s, values) {
  add(s, s.pd_rel_seconds, 1, 1);
}

void ago(date_state &s) {
  if (__builtin_sub_overflow(0, s.pd_rel_seconds, &s.pd_rel_seconds) ||
      __builtin_sub_overflow(0, s.pd_rel_months, &s.pd_rel_months)) {
    s.invalid = true;
  }
}

// ---- Periods.

bool months_contradict(const date_state &s, std::int64_t unit, std::int64_t period) {
  if (s.last_month_unit >= unit) return true;
  if (s.ordinal == ordinal_of::weekday) {
    return (unit == 1 && s.pd_day_ordinal > 5) || (unit == 3 && s.pd_day_ordinal > 14) ||
           (unit == 12 && s.pd_day_ordinal >= 54);
  }
  return s.ordinal == ordinal_of::whole_day && s.pd_day_ordinal >= 32 && period == 1;
}

void every_months(date_state &s, std::int64_t count, std::int64_t unit) {
  std::int64_t period = 0;
  add(s, period, count, unit);
  if (s.invalid) return;
  if (months_contradict(s, unit, period)) s.invalid = true;
  s.pd_every_months = period;
  // Into a month of the period's grid, which begins with January.
  if (period != 1) add(s, s.pd_rel_months, 1, 1 - s.pd_month % period);
  s.pd_day = 1;
}

// Back from the base time to a moment of the unit's grid; `unit` in minutes.
void to_grid(date_state &s, std::int64_t unit) {
  add(s, s.pd_rel_seconds, 1, s.base % 86400 - s.base % (unit * 60));
}

bool minutes_contradict(const date_state &s, std::int64_t unit) {
  constexpr std::int64_t week = 7 * DAY_MINUTES;
  bool weekday = s.ordinal == ordinal_of::weekday;
  if (s.last_month_unit != 0 || s.last_minute_unit >= unit) return true;
  if (unit == DAY_MINUTES) return weekday;
  return unit == week && ((weekday && s.pd_day_ordinal >= 2) || s.pd_day_ordinal >= 8);
}

void every_month_unit(date_state &s, values v) {
  every_months(s, 1, v[1]);
}
void every_number_months(date_state &s, values v) {
  every_months(s, v[1], v[2]);
}
void every_minute_unit(date_state &s, values v) {
  if (minutes_contradict(s, v[1])) s.invalid = true;
  s.pd_every_minutes = v[1];
  to_grid(s, v[1]);
}
void every_number_minutes(date_state &s, values v) {
  std::int64_t period = 0;
  add(s, period, v[1], v[2]);
  s.pd_every_minutes = period;
  to_grid(s, v[2]);
}

struct form_t {
  std::string_view pattern;  // kinds of the tokens
  int date_state::*count;    // of items of that sort; null: counted nowhere
  void (*effect)(date_state &, values);
};

// Longest first, which is the order of preference.
constexpr form_t forms[] = {
    {"n:n:na", &date_state::pd_have_time, hour_seconds_meridian},
    {"n:n:nn", &date_state::pd_have_time, hour_seconds_year},
    {"n:n:n", &date_state::pd_have_time, hour_seconds},
    {"n/n/n", &date_state::pd_have_date, date_slash_year},
    {"n:na", &date_state::pd_have_time, hour_minutes_meridian},
    {"n:nn", &date_state::pd_have_time, hour_minutes_year},
    {"+n:n", &date_state::pd_have_zone, zone_plus_clock},
    {"-n:n", &date_state::pd_have_zone, zone_minus_clock},
    {"Mn,n", &date_state::pd_have_date, date_month_day_year},
    {"Mo,n", &date_state::pd_have_date, date_month_day_year},
    {"n:n", &date_state::pd_have_time, hour_minutes},
    {"n/n", &date_state::pd_have_date, date_slash},
    {"nMn", &date_state::pd_have_date, date_day_month_year},
    {"oMn", &date_state::pd_have_date, date_day_month_year},
    {"enm", &date_state::pd_have_every, every_number_months},
    {"eni", &date_state::pd_have_every, every_number_minutes},
    {"na", &date_state::pd_have_time, hour_meridian},
    {"+n", &date_state::pd_have_zone, zone_plus_number},
    {"-n", &date_state::pd_have_zone, zone_minus_number},
    {"D,", &date_state::pd_have_day, day_next},
    {"nD", &date_state::pd_have_day, day_counted},
    {"oD", &date_state::pd_have_day, day_counted},
    {"Mn", &date_state::pd_have_date, date_month_day},
    {"Mo", &date_state::pd_have_date, date_month_day},
    {"nM", &date_state::pd_have_date, date_day_month},
    {"oM", &date_state::pd_have_date, date_day_month},
    {"ni", &date_state::pd_have_rel, rel_number_minutes},
    {"oi", &date_state::pd_have_rel, rel_ordinal_minutes},
    {"nm", &date_state::pd_have_rel, rel_number_months},
    {"om", &date_state::pd_have_rel, rel_ordinal_months},
    {"ns", &date_state::pd_have_rel, rel_number_seconds},
    {"os", &date_state::pd_have_rel, rel_ordinal_seconds},
    {"em", &date_state::pd_have_every, every_month_unit},
    {"ei", nullptr, every_minute_unit},
    {"n", nullptr, number},
    {"z", &date_state::pd_have_zone, zone_word},
    {"y", &date_state::pd_have_zone, zone_daylight},
    {"l", &date_state::pd_have_zone, zone_local},
    {"g", &date_state::pd_have_zone, zone_gmt},
    {"D", &date_state::pd_have_day, day_next},
    {"i", &date_state::pd_have_rel, rel_one_minute_unit},
    {"d", &date_state::pd_have_rel, rel_one_day},
    {"m", &date_state::pd_have_rel, rel_one_month_unit},
    {"s", &date_state::pd_have_rel, rel_one_second},
};

consteval bool longest_first() {
  for (std::size_t i = 1; i < std::size(forms); i++) {
    if (forms[i].pattern.size() > forms[i - 1].pattern.size()) return false;
  }
  return true;
}
static_assert(longest_first());

// An item as it stands at one place of the text.
struct item_t {
  const form_t *form = nullptr;  // null: no item from here on leads to the end of the text
  std::size_t agos = 0;
  std::size_t size() const { return form->pattern.size() + agos; }
};

bool stands_at(const form_t &form, const date_tokens &tokens, std::size_t at) {
  if (tokens.kinds.compare(at, form.pattern.size(), form.pattern) != 0) return false;
  if (form.pattern[0] != tEVERY) return true;
  for (std::size_t i = 1; i < form.pattern.size(); i++) {
    if (tokens.values[at + i] == 0) return false;  // a period of nothing
  }
  return true;
}

// For each place, from the end of the text on, the longest item behind which the rest can be cut
// into items too.
std::vector<item_t> cut(const date_tokens &tokens) {
  std::size_t count = tokens.kinds.size();
  std::vector<item_t> items(count + 1);
  for (std::size_t at = count; at-- > 0;) {
    for (const form_t &form : forms) {
      if (!stands_at(form, tokens, at)) continue;
      item_t item{&form, 0};
      if (form.count == &date_state::pd_have_rel) {
        while (at + item.size() < count && tokens.kinds[at + item.size()] == tAGO) item.agos++;
      }
      std::size_t behind = at + item.size();
      if (behind != count && items[behind].form == nullptr) continue;
      items[at] = item;
      break;
    }
  }
  return items;
}

}  // namespace

date_state date_begin(std::int64_t base, const std::tm &local) {
  date_state s;
  s.base = base;
  s.pd_year = std::int64_t{local.tm_year} + 1900;
  s.pd_month = local.tm_mon + 1;
  s.pd_day = local.tm_mday;
  s.local_daylight = local.tm_isdst > 0;
  s.pd_zone = -local.tm_gmtoff / 60 + (s.local_daylight ? 60 : 0);
  s.pd_start = base;
  return s;
}

bool date_parse(std::string_view text, std::string_view local_zone, date_state &state) {
  date_tokens tokens = date_scan(text, local_zone);
  std::vector<item_t> items = cut(tokens);
  std::size_t count = tokens.kinds.size();
  if (count > 0 && items[0].form == nullptr) return false;
  for (std::size_t at = 0; at < count; at += items[at].size()) {
    const item_t &item = items[at];
    item.form->effect(state, tokens.values.data() + at);
    for (std::size_t i = 0; i < item.agos; i++) ago(state);
    if (item.form->count != nullptr) state.*item.form->count += 1;
  }
  return true;
}

}  // namespace qvr
