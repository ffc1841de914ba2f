// The reader of ISO 8601 times.
#include <string_view>

#include "dates.h"
#include "local_time.h"

namespace qvr {

namespace {

// Which field a letter of a pattern reads. 'Z' and punctuation stand for themselves.
struct iso_t {
  civil_t civil;
  int sign = 0;             // of the offset
  std::int64_t offset = 0;  // as hhmm
  bool utc = false;
};

bool digits(std::string_view &text, std::size_t least, std::size_t most, std::int64_t &value) {
  std::size_t count = 0;
  value = 0;
  for (; count < most && count < text.size() && text[count] >= '0' && text[count] <= '9'; count++) {
    value = value * 10 + (text[count] - '0');
  }
  text.remove_prefix(count);
  return count >= least;
}

bool symbol(std::string_view &text, char wanted) {
  if (text.empty() || text.front() != wanted) return false;
  text.remove_prefix(1);
  return true;
}

// Numbers may be short where separators stand between them.
bool fields(std::string_view &text, bool separators, civil_t &civil) {
  static constexpr struct {
    std::size_t width;
    char separator;
    bool always;
  } parts[] = {{4, '-', false}, {2, '-', false}, {2, 'T', true},
               {2, ':', false}, {2, ':', false}, {2, '\0', false}};
  std::int64_t values[6];
  for (std::size_t i = 0; i < 6; i++) {
    std::size_t least = separators ? 1 : parts[i].width;
    if (!digits(text, least, parts[i].width, values[i])) return false;
    bool expected = parts[i].separator != '\0' && (separators || parts[i].always);
    if (expected && !symbol(text, parts[i].separator)) return false;
  }
  civil = {values[0],
           static_cast<int>(values[1]),
           static_cast<int>(values[2]),
           static_cast<int>(values[3]),
           static_cast<int>(values[4]),
           static_cast<int>(values[5])};
  return true;
}

bool valid(const civil_t &c) {
  return c.month >= 1 && c.month <= 12 && c.day >= 1 && c.day <= month_days(c.year, c.month) &&
         c.hour <= 23 && c.minute <= 59 && c.second <= 60;
}

bool read_form(std::string_view text, bool separators, iso_t &iso) {
  if (!fields(text, separators, iso.civil)) return false;
  if (symbol(text, 'Z')) {
    iso.utc = true;
  } else if (separators && !text.empty()) {
    if (symbol(text, '+'))
      iso.sign = 1;
    else if (symbol(text, '-'))
      iso.sign = -1;
    if (iso.sign == 0 || !digits(text, 1, 4, iso.offset)) return false;
  }
  return text.empty() && valid(iso.civil);
}

}  // namespace

std::int64_t iso_getdate(std::string_view text) {
  for (bool separators : {true, false}) {
    iso_t iso;
    if (!read_form(text, separators, iso)) continue;
    if (iso.utc) return utc_seconds(iso.civil);
    if (iso.sign == 0) return local_seconds(iso.civil);
    std::int64_t minutes = iso.offset / 100 * 60 + iso.offset % 100;
    return utc_seconds(iso.civil) - iso.sign * minutes * 60;
  }
  return 0;
}

}  // namespace qvr
