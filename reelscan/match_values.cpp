#include "match_values.h"

#include <strings.h>

#include <algorithm>
#include <clocale>
#include <cstring>

#include "dates.h"
#include "text_convert.h"

namespace qvr {

namespace {

constexpr std::int64_t MINUTE = 60, HOUR = 3600, DAY = 86400;

std::int64_t lower(const query_constraint_t &qc) {
  return static_cast<std::int64_t>(qc.qc_lo);
}
std::int64_t upper(const query_constraint_t &qc) {
  return static_cast<std::int64_t>(qc.qc_hi);
}
bool has_lower(const query_constraint_t &qc) {
  return (qc.qc_cmp & QC_LOWER) != 0;
}
bool has_upper(const query_constraint_t &qc) {
  return (qc.qc_cmp & QC_UPPER) != 0;
}

// What the seconds of a duration are a multiple of.
std::int64_t granularity(std::int64_t value) {
  if (value == 0) return 1;
  if (value >= DAY && value % DAY == 0) return DAY;
  if (value >= HOUR && value % HOUR == 0) return HOUR;
  if (value < MINUTE) return 1;
  return value % MINUTE == 0 ? MINUTE : 1;
}

// Compares value and bound in units of the bound: below, equal or above zero.
int compare_spans(std::int64_t value, std::int64_t bound) {
  std::int64_t unit = granularity(bound);
  std::int64_t a = value / unit, b = bound / unit;
  return a < b ? -1 : a > b;
}

// The rule of times and durations; `compare` orders two values that are not forever.
template <class Compare>
bool span_matches(const query_constraint_t &qc, std::int64_t value, upper_bound use,
                  Compare compare) {
  bool forever = time_is_forever(value);
  if (is_single(qc)) {
    if (forever || time_is_forever(lower(qc))) return forever && time_is_forever(lower(qc));
    return compare(value, lower(qc)) == 0;
  }
  if (has_lower(qc) && !forever) {
    if (time_is_forever(lower(qc)) || compare(value, lower(qc)) < 0) return false;
  }
  if (use == upper_bound::counts && has_upper(qc) && !time_is_forever(upper(qc))) {
    if (forever || compare(value, upper(qc)) > 0) return false;
  }
  return true;
}

template <class Number>
bool bounded(const query_constraint_t &qc, Number value) {
  if (is_single(qc)) return value == static_cast<Number>(qc.qc_lo);
  if (has_lower(qc) && value < static_cast<Number>(qc.qc_lo)) return false;
  return !has_upper(qc) || value <= static_cast<Number>(qc.qc_hi);
}

bool collation_is_bytes() {
  const char *name = std::setlocale(LC_COLLATE, nullptr);
  return name == nullptr || std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0;
}

}  // namespace

bool time_matches(const query_constraint_t &qc, std::int64_t value, upper_bound use) {
  return span_matches(qc, value, use,
                      [](std::int64_t a, std::int64_t b) { return a < b ? -1 : a > b; });
}

bool duration_matches(const query_constraint_t &qc, std::int64_t value) {
  return span_matches(qc, value, upper_bound::counts, compare_spans);
}

bool number_matches(const query_constraint_t &qc, std::uint64_t value) {
  return bounded<std::uint64_t>(qc, value);
}

bool signed_matches(const query_constraint_t &qc, std::int64_t value) {
  return bounded<std::int64_t>(qc, value);
}

bool flags_match(const query_constraint_t &qc, std::uint64_t flags) {
  return (flags & qc.qc_lo) == qc.qc_hi;
}

bool equal_nocase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && (a.empty() || strncasecmp(a.data(), b.data(), a.size()) == 0);
}

bool equal_collated(std::string_view a, std::string_view b) {
  if (a == b) return true;
  if (collation_is_bytes()) return false;
  return std::strcoll(std::string(a).c_str(), std::string(b).c_str()) == 0;
}

bool text_matches(const query_constraint_t &qc, std::string_view value) {
  if (value.data() == nullptr) return false;
  if (is_single(qc)) return equal_collated(value, first_text(qc));
  return std::find(qc.values.begin(), qc.values.end(), value) != qc.values.end();
}

bool text_matches_nocase(const query_constraint_t &qc, std::string_view value) {
  if (value.data() == nullptr) return false;
  if (is_single(qc)) return equal_nocase(value, first_text(qc));
  return std::any_of(qc.values.begin(), qc.values.end(),
                     [&](const std::string &text) { return equal_nocase(value, text); });
}

bool asks_empty(const query_constraint_t &qc) {
  if (is_single(qc)) return first_text(qc).empty();
  return std::any_of(qc.values.begin(), qc.values.end(),
                     [](const std::string &text) { return text.empty(); });
}

bool is_7bit(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

name_forms_t name_forms(std::string_view name) {
  name_forms_t forms;
  std::string store;
  forms.local = text_to_locale(name, store);
  for (char c : forms.local) {
    auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      forms.escaped += c;
    } else if (byte < 0xc0) {
      forms.escaped.append("\xef\xa2").append(1, c);
    } else {
      forms.escaped.append("\xef\xa3").append(1, static_cast<char>((byte & 0x3f) | 0x80));
    }
  }
  forms.usable = is_7bit(forms.escaped) || !is_7bit(name);
  return forms;
}

}  // namespace qvr
