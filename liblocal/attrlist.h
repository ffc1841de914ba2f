// Attribute lists and value lists, the one general container of the house.
//
// A vallist is the values of one attribute in order. An attrlist is sorted by name under a fold of
// the ASCII letters to upper case, no two attributes of one name. Both are values: copying copies.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvr {

using vallist = std::vector<std::string>;

struct attr_t {
  std::string name;
  vallist values;
  bool operator==(const attr_t &) const = default;
};

using attrlist = std::vector<attr_t>;

inline constexpr std::size_t ATTR_NAME_MAX = 64;  // on the wire

// Below, equal to or above zero, in the order of attribute names.
int attr_name_cmp(std::string_view a, std::string_view b);

attr_t &attrlist_set(attrlist &list, std::string_view name, std::string_view value);
attr_t &attrlist_setv(attrlist &list, std::string_view name, vallist values);
attr_t &attrlist_add(attrlist &list, std::string_view name, std::string_view value);
// Makes the attribute when it is absent; adds no value.
attr_t &attrlist_add(attrlist &list, std::string_view name);
const attr_t *attrlist_find(const attrlist &list, std::string_view name);
// The first value, or null when the attribute is missing or has none. Borrowed from the list.
const std::string *attrlist_first(const attrlist &list, std::string_view name);
bool attrlist_has(const attrlist &list, std::string_view name, std::string_view value);
bool attrlist_remove(attrlist &list, std::string_view name);

}  // namespace qvr
