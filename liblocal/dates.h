// Times: their arithmetic, the reader of free-form English dates and the forms in which they print.
//
// A time is a signed 64-bit count of seconds since 1970-01-01 00:00:00 UTC. 0 and below is no time.
// Two values stand for forever: TIME_FOREVER_32, which records of a 32-bit past carry, and
// TIME_FOREVER. All local forms follow the zone of the process (POSIX TZ, tzset()).
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <string_view>

namespace qvr {

inline constexpr std::int64_t TIME_FOREVER = 0x7fffffffffffffff;
inline constexpr std::int64_t TIME_FOREVER_32 = 0x7fffffff;
inline constexpr std::int64_t TIME_SPECIAL = 5748491471;  // what the special deltas stand for
inline constexpr std::int64_t TIME_FAILED = -1;           // the parse failed

inline constexpr std::uint32_t DELTA_FOREVER = 0xffffffff;
inline constexpr std::uint32_t DELTA_SPECIAL_HIGH = 0xfffffffe;
inline constexpr std::uint32_t DELTA_SPECIAL_LOW = 0xfffffffd;

// What a parsed text held.
enum date_flag : std::uint32_t {
  DATE_HAS_DATE = 1,
  DATE_HAS_DAY = 2,
  DATE_HAS_EVERY = 4,
  DATE_HAS_REL = 8,
  DATE_HAS_TIME = 16,
  DATE_HAS_ZONE = 32,
};

constexpr bool time_is_forever(std::int64_t time) {
  return time == TIME_FOREVER || time == TIME_FOREVER_32;
}

// ---- Values. Any thread.

// Seconds now, never exactly TIME_FOREVER_32; also stored through `out` when given.
std::int64_t time_now(std::int64_t *out = nullptr);
// The time that lies `delta` seconds behind `base`. A caller whose delta 0 means "no time" does not
// call this.
std::int64_t time_add(std::uint32_t delta, std::int64_t base);
// The delta from `base` to `time`.
std::uint32_t time_delta(std::int64_t time, std::int64_t base);
// -1, 0 or 1; both forever values are equal and greater than any other.
int time_cmp(std::int64_t a, std::int64_t b);
// -1 for a negative time, else the time cut at TIME_FOREVER_32.
std::int32_t time_to_32(std::int64_t time);
// The last second of the local day of `time`; forever stays.
std::int64_t time_end_of_day(std::int64_t time);
// The same for a time more than 86399 seconds in the future; any other stays.
std::int64_t time_end_of_day_future(std::int64_t time);
// True when `time` is neither 0 nor forever and lies more than 2^32 - 1 seconds in the future.
bool time_too_far(std::int64_t time);

// ---- Reading. Any thread; parses take turns under one mutex.

// The time that `text` means relative to now; -1 when it means none.
std::int64_t qvr_getdate(std::string_view text);
// The same relative to `base`. `flags` (when given) receives the date_flag bits of what the text
// held, also after a failure.
std::int64_t qvr_getdate_from(std::string_view text, std::int64_t base,
                              std::uint32_t *flags = nullptr);
// The same for the end of a range: a day in the past without a time of day means its last second.
std::int64_t qvr_getdate_end(std::string_view text);
std::int64_t qvr_getdate_end_from(std::string_view text, std::int64_t now);
// "l " in front selects the form of the locale (strptime of POSIX), and `locale` (when given) says
// whether that reader answered. Otherwise qvr_getdate_end() when `end` is set, else qvr_getdate().
std::int64_t qvr_getdate_any(std::string_view text, bool end, bool *locale = nullptr);
// "(locale format)" or "(qvr_getdate format)": the form that a date has been read in.
const char *date_form_name(bool locale);

// ---- Text forms. Each writes local time to `out`, cut to its size and ended with a NUL, and
// returns it. An empty `out` means a buffer of this thread and this form, which stands until the
// form's next call in the thread. "forever" for both forever values where not told otherwise.

const char *date_short(std::int64_t time, std::span<char> out = {});       // m/dd/yy
const char *date_time_short(std::int64_t time, std::span<char> out = {});  // m/dd/yy hh:mm:ss
const char *date_time_long(std::int64_t time, std::span<char> out = {});   // "%x %X"
const char *i18n_date_hhmm(std::int64_t time, std::span<char> out = {});   // "%x %H:%M"; no forever
const char *date_time_log(std::int64_t time, std::span<char> out = {});    // "%m/%d/%y %H:%M:%S"
const char *date_time_file(std::int64_t time, std::span<char> out = {});   // "%Y_%m_%d.%H_%M_%S"
const char *date_only(std::int64_t time, std::span<char> out = {});        // "%x"
const char *time_only(std::int64_t time, std::span<char> out = {});        // "%X"
const char *weekday_time(std::int64_t time, std::span<char> out = {});     // "%a %X"; no forever
// The current time with microseconds. False when `out` has 600 bytes or less.
bool date_time_micro(std::span<char> out);

// ISO 8601. None of them knows forever. `plain` leaves out the separators inside date and time.
const char *date_iso_zone(std::int64_t time, std::span<char> out = {});  // "%Y-%m-%dT%T%z"
const char *date_iso_utc(std::int64_t time, bool plain, std::span<char> out = {});
const char *date_iso_local(std::int64_t time, bool plain, std::span<char> out = {});
// Reads the forms above: with an offset in hhmm, with "Z", or local. 0 when none fits.
std::int64_t iso_getdate(std::string_view text);

// strftime of POSIX in the locale's code set; at most 600 bytes. The count of bytes written, 0 when
// they do not fit.
std::size_t ks_strftime(std::span<char> out, const char *format, const std::tm &fields);

}  // namespace qvr
