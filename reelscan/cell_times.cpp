#include "cell_times.h"

#include <langinfo.h>

#include <algorithm>
#include <ctime>

#include "dates.h"
#include "debug_words.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr std::size_t SLOTS = 1024;  // a power of two
constexpr std::size_t LONG_TEXT = 640;
constexpr std::int64_t HOUR = 3600, DAY = 86400;

std::size_t slot(std::int64_t number) {
  return static_cast<std::size_t>(number) & (SLOTS - 1);
}

std::int64_t floor_div(std::int64_t a, std::int64_t b) {
  return a / b - (a % b < 0 ? 1 : 0);
}

bool utc_offset(std::int64_t time, std::int64_t &offset) {
  std::tm fields;
  auto seconds = static_cast<std::time_t>(time);
  if (localtime_r(&seconds, &fields) == nullptr) return false;
  offset = fields.tm_gmtoff;
  return true;
}

char *put_two(char *to, unsigned value) {
  *to++ = static_cast<char>('0' + value / 10);
  *to++ = static_cast<char>('0' + value % 10);
  return to;
}

void add_two(unsigned value, cell_text &out) {
  out.add(static_cast<char>('0' + value / 10));
  out.add(static_cast<char>('0' + value % 10));
}

void add_minutes(std::int64_t second_of_day, cell_text &out) {
  char text[6] = {' '};
  auto minutes = static_cast<unsigned>(second_of_day / 60);
  *put_two(text + 1, minutes / 60) = ':';
  put_two(text + 4, minutes % 60);
  out.add(std::string_view(text, sizeof text));
}

void add_plain_clock(unsigned hour, std::int64_t second_of_day, cell_text &out) {
  char text[8];
  auto seconds = static_cast<unsigned>(second_of_day);
  *put_two(text, hour) = ':';
  *put_two(text + 3, seconds / 60 % 60) = ':';
  put_two(text + 6, seconds % 60);
  out.add(std::string_view(text, sizeof text));
}

bool is_ascii_word(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c > ' '; });
}

// Year, month and day of a local day since 1970, in the Gregorian calendar (ISO 8601).
void add_iso_date(std::int64_t day, cell_text &out) {
  std::int64_t shifted = day + 719468;  // from 0000-03-01
  std::int64_t era = floor_div(shifted, 146097);
  auto of_era = static_cast<unsigned>(shifted - era * 146097);
  unsigned year_of_era = (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
  unsigned of_year = of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  unsigned from_march = (5 * of_year + 2) / 153;
  unsigned month = from_march < 10 ? from_march + 3 : from_march - 9;
  out.add_i64(era * 400 + year_of_era + (month <= 2 ? 1 : 0));
  out.add('-');
  add_two(month, out);
  out.add('-');
  add_two(of_year - (153 * from_march + 2) / 5 + 1, out);
}

}  // namespace

time_cells::time_cells(bool iso, bool old_forever)
    : iso_(iso),
      old_forever_(old_forever),
      undefined_(catalog_text(6096, "undefined ")),
      undef_(catalog_text(4155, "undef")),
      hours_(SLOTS),
      days_(SLOTS) {
  read_clock();
}

void time_cells::read_clock() {
  std::string_view form = nl_langinfo(T_FMT);
  if (form == "%r") form = nl_langinfo(T_FMT_AMPM);
  if (form == "%H:%M:%S" || form == "%T") {
    clock_ = clock_t::plain;
    clock_size_ = 8;
  } else if (form == "%I:%M:%S %p") {
    halves_[0] = nl_langinfo(AM_STR);
    halves_[1] = nl_langinfo(PM_STR);
    if (!is_ascii_word(halves_[0]) || !is_ascii_word(halves_[1]) ||
        halves_[0].size() != halves_[1].size())
      return;
    clock_ = clock_t::half_days;
    clock_size_ = 9 + static_cast<std::int32_t>(halves_[0].size());
  }
}

void time_cells::add_clock(std::int64_t second_of_day, cell_text &out) const {
  auto hour = static_cast<unsigned>(second_of_day / HOUR);
  if (clock_ == clock_t::plain) return add_plain_clock(hour, second_of_day, out);
  add_plain_clock(hour % 12 == 0 ? 12 : hour % 12, second_of_day, out);
  out.add(' ');
  out.add(halves_[hour / 12]);
}

bool time_cells::is_shown_old_forever(std::int64_t time) const {
  return old_forever_ && time == TIME_FOREVER_32;
}

bool time_cells::local_seconds(std::int64_t time, std::int64_t &local) {
  std::int64_t number = floor_div(time, HOUR);
  hour_t &hour = hours_[slot(number)];
  if (hour.number != number) {
    std::int64_t last = 0;
    hour.number = number;
    hour.steady = time < INT64_MAX - 2 * DAY && utc_offset(number * HOUR, hour.offset) &&
                  utc_offset(number * HOUR + HOUR - 1, last) && last == hour.offset;
  }
  local = hour.steady ? time + hour.offset : 0;
  return hour.steady;
}

const time_cells::day_t *time_cells::day_of(std::int64_t time, std::int64_t local_day) {
  day_t &day = days_[slot(local_day)];
  if (day.number != local_day) {
    char text[LONG_TEXT];
    // The second before 0x7fffffff has the same date, and is not forever.
    std::string_view date = date_only(time == TIME_FOREVER_32 ? time - 1 : time, text);
    day.number = local_day;
    day.size = date.size() <= sizeof day.date ? static_cast<std::uint8_t>(date.size()) : 0;
    std::memcpy(day.date, date.data(), day.size);
  }
  return day.size == 0 ? nullptr : &day;
}

bool time_cells::quick_date(std::int64_t time, cell_text &out) {
  std::int64_t local;
  if (!local_seconds(time, local)) return false;
  const day_t *day = day_of(time, floor_div(local, DAY));
  if (day == nullptr) return false;
  out.add(std::string_view(day->date, day->size));
  return true;
}

bool time_cells::quick_long(std::int64_t time, cell_text &out) {
  std::int64_t local;
  if (clock_ == clock_t::other || !local_seconds(time, local)) return false;
  const day_t *day = day_of(time, floor_div(local, DAY));
  if (day == nullptr) return false;
  out.add(std::string_view(day->date, day->size));
  out.add(' ');
  add_clock(local - floor_div(local, DAY) * DAY, out);
  return true;
}

void time_cells::iso_time(std::int64_t time, cell_text &out) {
  std::int64_t local;
  if (local_seconds(time, local)) {
    add_iso_date(floor_div(local, DAY), out);
    out.add('T');
    std::int64_t seconds = local - floor_div(local, DAY) * DAY;
    return add_plain_clock(static_cast<unsigned>(seconds / HOUR), seconds, out);
  }
  char text[LONG_TEXT];
  std::string_view date = date_iso_local(time, false, text);
  out.add(date.empty() ? catalog_text(431, "-----no time-----") : date);
}

void time_cells::rsc_long_time(std::int64_t time, cell_text &out) {
  char text[LONG_TEXT];
  if (time <= 0) return out.add(undefined_);
  if (iso_) return iso_time(time, out);
  if (is_shown_old_forever(time)) {
    auto seconds = static_cast<std::time_t>(time);
    out.add('(');
    out.add(ctime_r(&seconds, text));
    return out.add(')');
  }
  if (time_is_forever(time) || !quick_long(time, out)) out.add(date_time_long(time, text));
}

void time_cells::rsc_short_date(std::int64_t time, cell_text &out) {
  char text[LONG_TEXT];
  if (time <= 0) return out.add(undef_);
  if (is_shown_old_forever(time)) {
    if (!quick_date(time, out)) out.add(catalog_text(432, "no date"));
    return;
  }
  if (time_is_forever(time) || !quick_date(time, out)) out.add(date_only(time, text));
}

void time_cells::stepped(std::int64_t time, std::int32_t width, cell_text &out) {
  auto fits = [width](std::size_t size) { return static_cast<std::int64_t>(size) <= width; };
  char store[LONG_TEXT];
  cell_text whole(store, sizeof store);
  rsc_long_time(time, whole);
  if (fits(whole.size())) return out.add(whole.text());
  KS_DEBUG(3, "rsc_long_time returned strlen(%s) = %d, mr->mr_width = %d\n", store,
           static_cast<int>(whole.size()), width);

  std::string_view minutes = i18n_date_hhmm(time, store);
  if (fits(minutes.size())) return out.add(minutes);
  KS_DEBUG(5, "i18n_date_hhmm() returned strlen(%s) = %d\n", store,
           static_cast<int>(minutes.size()));
  rsc_short_date(time, out);
}

void time_cells::cell(std::int64_t time, std::int32_t width, cell_text &out) {
  bool told = debug_on(3) || debug_on(5);
  if (time <= 0 || iso_ || time_is_forever(time) || told || !quick_cell(time, width, out)) {
    stepped(time, width, out);
  }
}

// The steps by the lengths that their texts have, which the locale's clock fixes. Without a known
// clock a date that fills the column still leaves no room for either longer form.
bool time_cells::quick_cell(std::int64_t time, std::int32_t width, cell_text &out) {
  std::int64_t local;
  if (!local_seconds(time, local)) return false;
  std::int64_t number = floor_div(local, DAY);
  const day_t *day = day_of(time, number);
  if (day == nullptr || (clock_ == clock_t::other && day->size + 1 <= width)) return false;
  out.add(std::string_view(day->date, day->size));
  if (day->size + 1 + clock_size_ <= width) {
    out.add(' ');
    add_clock(local - number * DAY, out);
  } else if (day->size + 6 <= width) {
    add_minutes(local - number * DAY, out);
  }
  return true;
}

}  // namespace qvr
