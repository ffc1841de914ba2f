#include "cell_times.h"

#include <langinfo.h>

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

void add_two(unsigned value, cell_text &out) {
  char digits[2] = {static_cast<char>('0' + value / 10), static_cast<char>('0' + value % 10)};
  out.add(std::string_view(digits, 2));
}

void add_clock(std::int64_t second_of_day, cell_text &out) {
  auto seconds = static_cast<unsigned>(second_of_day);
  add_two(seconds / 3600, out);
  out.add(':');
  add_two(seconds / 60 % 60, out);
  out.add(':');
  add_two(seconds % 60, out);
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
  std::string_view clock = nl_langinfo(T_FMT);
  plain_clock_ = clock == "%H:%M:%S" || clock == "%T";
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
  if (!plain_clock_ || !local_seconds(time, local)) return false;
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
    return add_clock(local - floor_div(local, DAY) * DAY, out);
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
  // A date that fills the column leaves no room for a time of day in either longer form.
  std::int64_t local;
  bool told = debug_on(3) || debug_on(5);
  if (time > 0 && !iso_ && !time_is_forever(time) && !told && local_seconds(time, local)) {
    const day_t *day = day_of(time, floor_div(local, DAY));
    if (day != nullptr && day->size + 1 > width) {
      return out.add(std::string_view(day->date, day->size));
    }
  }
  stepped(time, width, out);
}

}  // namespace qvr
