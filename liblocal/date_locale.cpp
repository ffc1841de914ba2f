// The reader of dates in the form of the locale.
#include <algorithm>
#include <string>

#include "dates.h"
#include "debug_words.h"
#include "ks_wrappers.h"
#include "local_time.h"

namespace qvr {

namespace {

constexpr std::size_t LOCALE_TEXT_MAX = 600;

// In the order in which they are tried.
constexpr const char *locale_formats[] = {
    "%c",
    "%x %H:%M:%S",
    "%b %d %Y %H:%M:%S",
    " %b %d %Y %H:%M:%S",
    "%x %H:%M",
    "%b %d %Y %H:%M",
    " %b %d %Y %H:%M",
    "%b %d %H:%M:%S",
    " %b %d %H:%M:%S",
    "%b %d %H:%M",
    " %b %d %H:%M",
    "%b %d %Y",
    " %b %d %Y",
    "%x",
    "%b %d",
    " %b %d",
};

bool between(int value, int least, int most) {
  return value >= least && value <= most;
}

bool fields_valid(const std::tm &f) {
  if (f.tm_year >= 0 && between(f.tm_mon, 0, 11) && between(f.tm_mday, 1, 31) &&
      between(f.tm_hour, 0, 23) && between(f.tm_min, 0, 59) && between(f.tm_sec, 0, 59)) {
    return true;
  }
  KS_DEBUG(7,
           "locale date/time specified is not valid: tm_sec = %d, tm_min = %d, tm_hour = %d, "
           "tm_mday = %d, tm_mon = %d, tm_year = %d\n",
           f.tm_sec, f.tm_min, f.tm_hour, f.tm_mday, f.tm_mon, f.tm_year);
  return false;
}

bool read_format(const std::string &text, const char *format, std::tm &fields) {
  const char *rest = ks_strptime(text.c_str(), format, &fields);
  if (rest == nullptr) return false;
  while (*rest == ' ') rest++;
  return *rest == '\0' && fields_valid(fields);
}

std::int64_t getdate_locale(const std::string &text, bool end) {
  if (text.size() >= LOCALE_TEXT_MAX) return TIME_FAILED;
  std::tm today;
  if (!local_fields(time_now(), today)) return TIME_FAILED;
  for (const char *format : locale_formats) {
    std::tm fields{};
    fields.tm_year = today.tm_year;
    if (end) {
      fields.tm_hour = 23;
      fields.tm_min = 59;
      fields.tm_sec = 59;
    }
    if (read_format(text, format, fields)) {
      fields.tm_isdst = -1;
      return std::mktime(&fields);
    }
    KS_DEBUG(7, "locale date/time specified (%s) not valid when parsed in as '%s' format\n",
             text.c_str(), format);
  }
  return TIME_FAILED;
}

}  // namespace

std::int64_t qvr_getdate_any(std::string_view text, bool end, bool *locale) {
  bool by_locale = text.size() > 2 && text.starts_with("l ");
  if (locale != nullptr) *locale = by_locale;
  if (!by_locale) return end ? qvr_getdate_end(text) : qvr_getdate(text);
  text.remove_prefix(std::min(text.find_first_not_of(' ', 1), text.size()));
  return getdate_locale(std::string(text), end);
}

const char *date_form_name(bool locale) {
  return locale ? "(locale format)" : "(qvr_getdate format)";
}

}  // namespace qvr
