#include "clone_retention.h"

#include <charconv>

#include "dates.h"

namespace qvr {

namespace {

template <class Number>
bool read_number(std::string_view &text, Number &value) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool read_colon(std::string_view &text) {
  if (text.empty() || text.front() != ':') return false;
  text.remove_prefix(1);
  return true;
}

// "cloneid:basetime:delta", spaces before each number.
bool read_value(std::string_view text, std::int64_t &cloneid, retention_t &retention) {
  return read_number(text, cloneid) && read_colon(text) && read_number(text, retention.base) &&
         read_colon(text) && read_number(text, retention.delta);
}

// True when the first attribute of either name says so. Both names are of one length.
template <std::size_t Size>
bool either_says_yes(const ss_t &ss, const char (&old_name)[Size], const char (&new_name)[Size]) {
  packed_attrs::cursor_t at = ss.attrs.cursor();
  packed_attrs::values_t values = packed_attrs::no_values();
  bool old_seen = false, new_seen = false;
  for (std::string_view name, value; at.next(name, values);) {
    if (name.size() != Size - 1) continue;
    bool &seen = attr_name_cmp(name, old_name) == 0 ? old_seen : new_seen;
    if (&seen == &new_seen && attr_name_cmp(name, new_name) != 0) continue;
    if (!seen && values.next(value) && value == "Yes") return true;
    seen = true;
  }
  return false;
}

}  // namespace

retention_t clone_retention(const ss_t &ss, const clone_t *clone) {
  packed_attrs::values_t values = packed_attrs::no_values();
  if (clone != nullptr && ss.attrs.find(ATTR_CLONE_RETENTION, values)) {
    std::string_view value;
    std::int64_t cloneid;
    retention_t retention;
    while (values.next(value)) {
      if (read_value(value, cloneid, retention) && cloneid == clone->cloneid) return retention;
    }
  }
  return {ss.ssinsert, ss.ssretent};
}

std::int64_t clone_retention_time(const ss_t &ss, const clone_t *clone) {
  retention_t retention = clone_retention(ss, clone);
  return retention.delta == 0 ? 0 : time_add(retention.delta, retention.base);
}

std::int64_t ss_limit(const ss_t &ss, std::uint32_t delta) {
  std::int64_t sum;
  return __builtin_add_overflow(ss.ssinsert, std::int64_t{delta}, &sum) ? TIME_FOREVER : sum;
}

bool ss_browse_forever(const ss_t &ss) {
  return either_says_yes(ss, "*QVR_OLD_FOREVER_BROWSE_TIME", "*QVR_NEW_FOREVER_BROWSE_TIME");
}

bool ss_retent_forever(const ss_t &ss) {
  return either_says_yes(ss, "*QVR_OLD_FOREVER_TIME", "*QVR_NEW_FOREVER_TIME");
}

}  // namespace qvr
