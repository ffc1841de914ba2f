#include <algorithm>
#include <ctime>

#include "dates.h"
#include "ks_clock.h"
#include "local_time.h"

namespace qvr {

std::int64_t time_now(std::int64_t *out) {
  std::int64_t now = ks_clock_now();
  if (now == TIME_FOREVER_32) now--;
  if (out != nullptr) *out = now;
  return now;
}

std::int64_t time_add(std::uint32_t delta, std::int64_t base) {
  if (delta == DELTA_FOREVER || time_is_forever(base)) return TIME_FOREVER;
  if (delta == DELTA_SPECIAL_HIGH || delta == DELTA_SPECIAL_LOW || base == TIME_FOREVER_32 - 1) {
    return TIME_SPECIAL;
  }
  std::int64_t sum;
  if (__builtin_add_overflow(base, std::int64_t{delta}, &sum)) return TIME_FOREVER;
  return sum == TIME_FOREVER_32 ? sum - 1 : sum;
}

std::uint32_t time_delta(std::int64_t time, std::int64_t base) {
  if (time_is_forever(time)) return DELTA_FOREVER;
  auto delta = static_cast<std::uint32_t>(static_cast<std::uint64_t>(time) -
                                          static_cast<std::uint64_t>(base));
  return delta == DELTA_FOREVER ? DELTA_SPECIAL_HIGH : delta;
}

int time_cmp(std::int64_t a, std::int64_t b) {
  bool a_forever = time_is_forever(a), b_forever = time_is_forever(b);
  if (a_forever || b_forever) return int{a_forever} - int{b_forever};
  return int{a > b} - int{a < b};
}

std::int32_t time_to_32(std::int64_t time) {
  if (time < 0) return -1;
  return static_cast<std::int32_t>(std::min(time, TIME_FOREVER_32));
}

std::int64_t time_end_of_day(std::int64_t time) {
  std::tm fields;
  if (time_is_forever(time) || !local_fields(time, fields)) return time;
  civil_t day = civil_of(fields);
  if (day.year < 0 || day.year > 9999) return time;
  day.hour = 23;
  day.minute = 59;
  day.second = 59;
  return local_seconds(day);
}

std::int64_t time_end_of_day_future(std::int64_t time) {
  return time_is_forever(time) || time <= time_now() + 86399 ? time : time_end_of_day(time);
}

bool time_too_far(std::int64_t time) {
  return time != 0 && !time_is_forever(time) && time > time_now() + 0xffffffffLL;
}

}  // namespace qvr
