#include "attrlist.h"

#include <algorithm>

namespace qvr {

namespace {

attrlist::const_iterator place_of(const attrlist &list, std::string_view name) {
  return std::lower_bound(list.begin(), list.end(), name,
                          [](const attr_t &attr, std::string_view wanted) {
                            return attr_name_cmp(attr.name, wanted) < 0;
                          });
}

// The attribute of that name, made when it is absent.
attr_t &have(attrlist &list, std::string_view name) {
  auto at = list.begin() + (place_of(list, name) - list.cbegin());
  if (at != list.end() && attr_name_equal(at->name, name)) return *at;
  return *list.insert(at, attr_t{std::string(name), {}});
}

}  // namespace

attr_t attr_new(std::string_view name, std::string_view value) {
  attr_t attr{std::string(name), {}};
  if (!value.empty()) attr.values.emplace_back(value);
  return attr;
}

bool attr_has(const attr_t &attr, std::string_view value) {
  return vallist_find(attr.values, value) != nullptr;
}

attr_t &attrlist_set(attrlist &list, std::string_view name, std::string_view value) {
  // The value may lie in the list that is about to change.
  vallist values;
  if (value.data() != nullptr) values.emplace_back(value);
  attr_t &attr = have(list, name);
  attr.values = std::move(values);
  return attr;
}

attr_t &attrlist_setv(attrlist &list, std::string_view name, vallist values) {
  attr_t &attr = have(list, name);
  attr.values = std::move(values);
  return attr;
}

attr_t &attrlist_set_take(attrlist &list, std::string_view name, vallist &&values) {
  return attrlist_setv(list, name, std::move(values));
}

attr_t &attrlist_add(attrlist &list, std::string_view name, std::string_view value) {
  if (value.data() == nullptr) return have(list, name);
  std::string copy(value);
  attr_t &attr = have(list, name);
  attr.values.push_back(std::move(copy));
  return attr;
}

attr_t &attrlist_add(attrlist &list, std::string_view name) {
  return have(list, name);
}

attr_t &attrlist_addv(attrlist &list, std::string_view name, const vallist &values) {
  vallist copy = values;
  attr_t &attr = have(list, name);
  for (std::string &value : copy) attr.values.push_back(std::move(value));
  return attr;
}

const attr_t *attrlist_find(const attrlist &list, std::string_view name) {
  auto at = place_of(list, name);
  return at != list.end() && attr_name_equal(at->name, name) ? &*at : nullptr;
}

const attr_t *attrlist_find_exact(const attrlist &list, std::string_view name) {
  const attr_t *attr = attrlist_find(list, name);
  return attr != nullptr && attr->name == name ? attr : nullptr;
}

const std::string *attrlist_first(const attrlist &list, std::string_view name) {
  const attr_t *attr = attrlist_find(list, name);
  return attr != nullptr && !attr->values.empty() ? &attr->values.front() : nullptr;
}

bool attrlist_has(const attrlist &list, std::string_view name, std::string_view value) {
  const attr_t *attr = attrlist_find(list, name);
  return attr != nullptr && attr_has(*attr, value);
}

bool attrlist_has_any(const attrlist &list, std::string_view name, const vallist &values) {
  const attr_t *attr = attrlist_find(list, name);
  return attr != nullptr &&
         std::any_of(values.begin(), values.end(),
                     [&](const std::string &value) { return attr_has(*attr, value); });
}

void attrlist_merge(attrlist &list, const attrlist &from) {
  attrlist merged;
  merged.reserve(list.size() + from.size());
  auto old = list.begin();
  for (const attr_t &attr : from) {
    while (old != list.end() && attr_name_cmp(old->name, attr.name) < 0) {
      merged.push_back(std::move(*old++));
    }
    if (old != list.end() && attr_name_equal(old->name, attr.name)) ++old;
    merged.push_back(attr);
  }
  std::move(old, list.end(), std::back_inserter(merged));
  list = std::move(merged);
}

bool attrlist_remove(attrlist &list, std::string_view name) {
  auto at = place_of(list, name);
  if (at == list.end() || !attr_name_equal(at->name, name)) return false;
  list.erase(at);
  return true;
}

attrlist attrlist_build(std::initializer_list<attrlist_row_t> rows) {
  attrlist list;
  for (const attrlist_row_t &row : rows) {
    attr_t &attr = have(list, row.name);
    attr.values.insert(attr.values.end(), row.values.begin(), row.values.end());
  }
  return list;
}

bool attrlist_subset(const attrlist &a, const attrlist &b) {
  return std::all_of(a.begin(), a.end(), [&](const attr_t &attr) {
    const attr_t *other = attrlist_find(b, attr.name);
    return other != nullptr && vallist_intersect(attr.values, other->values);
  });
}

void attrlist_restore_order(attrlist &list) {
  auto less = [](const attr_t &a, const attr_t &b) { return attr_name_cmp(a.name, b.name) < 0; };
  auto not_rising = [&](const attr_t &a, const attr_t &b) { return !less(a, b); };
  if (std::adjacent_find(list.begin(), list.end(), not_rising) == list.end()) return;
  std::stable_sort(list.begin(), list.end(), less);
  list.erase(
      std::unique(list.begin(), list.end(),
                  [](const attr_t &a, const attr_t &b) { return attr_name_equal(a.name, b.name); }),
      list.end());
}

}  // namespace qvr
