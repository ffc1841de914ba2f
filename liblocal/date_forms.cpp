// The forms in which a time prints.
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "dates.h"
#include "local_time.h"
#include "msg.h"
#include "text_convert.h"

namespace qvr {

namespace {

constexpr std::size_t STRFTIME_MAX = 600;

// Copies as much as fits, with its NUL.
const char *put_text(std::span<char> out, std::string_view text) {
  std::size_t size = std::min(text.size(), out.size() - 1);
  std::memcpy(out.data(), text.data(), size);
  out[size] = '\0';
  return out.data();
}

// A buffer of the calling thread for the form of that row.
template <std::size_t Size, int Form>
std::span<char> or_static(std::span<char> out) {
  if (!out.empty()) return out;
  thread_local std::array<char, Size> buffer;
  return buffer;
}

const char *put_strftime(std::span<char> out, const char *format, const std::tm &fields) {
  out[0] = '\0';
  ks_strftime(out, format, fields);
  return out.data();
}

enum form_number { SHORT, SHORT_TIME, LONG, HHMM, LOG, FILE_NAME, DATE, TIME, WEEKDAY, ISO };

}  // namespace

std::size_t ks_strftime(std::span<char> out, const char *format, const std::tm &fields) {
  if (out.empty()) return 0;
  std::array<char, STRFTIME_MAX> native;
// The formats are the constants of the forms above, or a caller's own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::size_t size = std::strftime(native.data(), native.size(), format, &fields);
#pragma GCC diagnostic pop
  std::string_view text(native.data(), size);
  std::string store;
  text = text_from_locale(text, store);
  if (text.size() >= out.size()) {
    out[0] = '\0';
    return 0;
  }
  put_text(out, text);
  return text.size();
}

const char *date_short(std::int64_t time, std::span<char> out) {
  out = or_static<20, SHORT>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) {
    std::snprintf(out.data(), out.size(), "%8.8s", "no date");
  } else {
    std::snprintf(out.data(), out.size(), "%2d/%2.2d/%2.2d", f.tm_mon + 1, f.tm_mday,
                  f.tm_year % 100);
  }
  return out.data();
}

const char *date_time_short(std::int64_t time, std::span<char> out) {
  out = or_static<40, SHORT_TIME>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) {
    std::snprintf(out.data(), out.size(), "%17.17s", "-----no time-----");
  } else {
    std::snprintf(out.data(), out.size(), "%2d/%2.2d/%2.2d %2d:%2.2d:%2.2d", f.tm_mon + 1,
                  f.tm_mday, f.tm_year % 100, f.tm_hour, f.tm_min, f.tm_sec);
  }
  return out.data();
}

const char *date_time_long(std::int64_t time, std::span<char> out) {
  out = or_static<600, LONG>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) return put_text(out, catalog_text(431, "-----no time-----"));
  return put_strftime(out, "%x %X", f);
}

const char *i18n_date_hhmm(std::int64_t time, std::span<char> out) {
  out = or_static<600, HHMM>(out);
  std::tm f;
  if (!local_fields(time, f)) return put_text(out, catalog_text(431, "-----no time-----"));
  return put_strftime(out, "%x %H:%M", f);
}

const char *date_time_log(std::int64_t time, std::span<char> out) {
  out = or_static<601, LOG>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) return put_text(out, "no-time");
  return put_text(out, log_time_text(f));
}

const char *date_time_file(std::int64_t time, std::span<char> out) {
  out = or_static<600, FILE_NAME>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) return put_text(out, catalog_text(431, "-----no time-----"));
  return put_strftime(out, "%Y_%m_%d.%H_%M_%S", f);
}

const char *date_only(std::int64_t time, std::span<char> out) {
  out = or_static<600, DATE>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) return put_text(out, catalog_text(432, "no date"));
  return put_strftime(out, "%x", f);
}

const char *time_only(std::int64_t time, std::span<char> out) {
  out = or_static<600, TIME>(out);
  std::tm f;
  if (time_is_forever(time)) return put_text(out, "forever");
  if (!local_fields(time, f)) return put_text(out, catalog_text(433, "no time"));
  return put_strftime(out, "%X", f);
}

const char *weekday_time(std::int64_t time, std::span<char> out) {
  out = or_static<600, WEEKDAY>(out);
  std::tm f;
  if (!local_fields(time, f)) return put_text(out, "");
  return put_strftime(out, "%a %X", f);
}

bool date_time_micro(std::span<char> out) {
  if (out.size() <= STRFTIME_MAX) return false;
  timeval now;
  gettimeofday(&now, nullptr);
  std::array<char, 601> seconds;
  std::snprintf(out.data(), out.size(), "%s.%.6lu", date_time_log(now.tv_sec, seconds),
                static_cast<unsigned long>(now.tv_usec));
  return true;
}

const char *date_iso_zone(std::int64_t time, std::span<char> out) {
  out = or_static<600, ISO>(out);
  std::tm f;
  if (!local_fields(time, f)) return put_text(out, "");
  std::array<char, 64> local;
  put_strftime(local, "%Y-%m-%dT%T", f);
  // By hand, since a zone without its sign could not be read back.
  long minutes = (f.tm_gmtoff < 0 ? -f.tm_gmtoff : f.tm_gmtoff) / 60;
  std::snprintf(out.data(), out.size(), "%s%c%02ld%02ld", local.data(), f.tm_gmtoff < 0 ? '-' : '+',
                minutes / 60, minutes % 60);
  return out.data();
}

const char *date_iso_utc(std::int64_t time, bool plain, std::span<char> out) {
  out = or_static<600, ISO>(out);
  auto native = static_cast<std::time_t>(time);
  std::tm f;
  if (gmtime_r(&native, &f) == nullptr) return put_text(out, "");
  return put_strftime(out, plain ? "%Y%m%dT%H%M%SZ" : "%Y-%m-%dT%H:%M:%SZ", f);
}

const char *date_iso_local(std::int64_t time, bool plain, std::span<char> out) {
  out = or_static<600, ISO>(out);
  std::tm f;
  if (!local_fields(time, f)) return put_text(out, "");
  return put_strftime(out, plain ? "%Y%m%dT%H%M%S" : "%Y-%m-%dT%H:%M:%S", f);
}

}  // namespace qvr
