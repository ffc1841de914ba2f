#include "packed_attrs.h"

namespace qvr {

namespace {

void append_word(std::string &to, std::uint32_t value) {
  value = __builtin_bswap32(value);
  to.append(reinterpret_cast<const char *>(&value), 4);
}

void append_counted(std::string &to, std::string_view text) {
  append_word(to, static_cast<std::uint32_t>(text.size()));
  to.append(text);
  to.append(-text.size() & 3, '\0');
}

}  // namespace

bool packed_attrs::empty() const {
  cursor_t at = cursor();
  std::string_view name;
  values_t values = no_values();
  if (!at.next(name, values)) return true;
  std::string_view value, next;
  return name.empty() && !values.next(value) && !at.next(next, values);
}

bool packed_attrs::find(std::string_view name, values_t &values) const {
  cursor_t at = cursor();
  std::string_view here;
  while (at.next(here, values)) {
    if (here.size() == name.size() && attr_name_cmp(here, name) == 0) return true;
  }
  values = no_values();
  return false;
}

std::string_view packed_attrs::first(std::string_view name) const {
  values_t values = no_values();
  std::string_view value;
  return find(name, values) && values.next(value) ? value : std::string_view();
}

bool packed_attrs::has(std::string_view name) const {
  values_t values = no_values();
  return find(name, values);
}

attrlist packed_attrs::unpack() const {
  attrlist list;
  if (empty()) return list;
  cursor_t at = cursor();
  std::string_view name, value;
  values_t values = no_values();
  while (at.next(name, values)) {
    attrlist_add(list, name);
    while (values.next(value)) attrlist_add(list, name, value);
  }
  return list;
}

std::string packed_attrs::pack(const attrlist &list) {
  std::string series;
  for (std::size_t i = 0; i < list.size(); i++) {
    append_counted(series, list[i].name);
    append_word(series, list[i].values.empty() ? 0 : 1);
    for (std::size_t v = 0; v < list[i].values.size(); v++) {
      append_counted(series, list[i].values[v]);
      append_word(series, v + 1 < list[i].values.size() ? 1 : 0);
    }
    append_word(series, i + 1 < list.size() ? 1 : 0);
  }
  return series;
}

}  // namespace qvr
