#include "cell_attrs.h"

#include <charconv>
#include <limits>

#include "attrlist.h"
#include "clone_retention.h"

namespace qvr {

namespace {

// Room, the NUL counted, that must be left behind a name and in front of a separator.
constexpr std::size_t ROOM_BEHIND_NAME = 3, ROOM_BEFORE_SEPARATOR = 4;

bool room_for(const cell_text &out, std::size_t needed) {
  return out.left() + 1 >= needed;
}

bool add_whole(std::string_view text, cell_text &out) {
  bool fits = text.size() <= out.left();
  out.add(text);
  return fits;
}

bool add_attribute(std::string_view name, packed_attrs::values_t values, cell_text &out) {
  bool whole = add_whole(name, out);
  if (!whole || !room_for(out, ROOM_BEHIND_NAME)) return false;
  out.add(':');
  std::string_view value;
  for (bool first = true; values.next(value); first = false) {
    if (!first) {
      if (!room_for(out, ROOM_BEFORE_SEPARATOR)) return false;
      out.add(", ");
    }
    if (!add_whole(value, out)) return false;
  }
  return true;
}

bool add_list(const packed_attrs &attrs, cell_text &out) {
  packed_attrs::cursor_t at = attrs.cursor();
  packed_attrs::values_t values = packed_attrs::no_values();
  std::string_view name;
  for (bool first = true; at.next(name, values);) {
    if (attr_name_cmp(name, ATTR_CLONE_RETENTION) == 0) continue;
    if (!first) {
      if (!room_for(out, ROOM_BEFORE_SEPARATOR)) return false;
      out.add("; ");
    }
    if (!add_attribute(name, values, out)) return false;
    first = false;
  }
  return true;
}

std::string_view behind_blanks(std::string_view text) {
  std::size_t start = text.find_first_not_of(" \t");
  text.remove_prefix(start == std::string_view::npos ? text.size() : start);
  if (!text.empty() && text[0] == '+') text.remove_prefix(1);
  return text;
}

template <class Number>
Number leading_number(std::string_view text) {
  text = behind_blanks(text);
  Number value = 0;
  auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc::result_out_of_range) return value;
  return text[0] == '-' ? std::numeric_limits<Number>::min() : std::numeric_limits<Number>::max();
}

}  // namespace

void rsc_attrs_text(const packed_attrs &attrs, cell_text &out) {
  if (attrs.empty()) return;
  if (!add_list(attrs, out)) out.end_with('+');
}

std::uint64_t attr_number(std::string_view value) {
  return leading_number<std::uint64_t>(value);
}

std::int64_t attr_signed_number(std::string_view value) {
  return leading_number<std::int64_t>(value);
}

}  // namespace qvr
