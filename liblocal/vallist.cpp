#include <algorithm>

#include "attrlist.h"
#include "debug_words.h"

namespace qvr {

namespace {

template <class Less>
bool insert_sorted(vallist &list, std::string_view value, Less less) {
  auto at = std::lower_bound(list.begin(), list.end(), value, less);
  if (at != list.end() && !less(value, *at)) return false;
  list.emplace(at, value);
  return true;
}

}  // namespace

vallist vallist_new(std::string_view value) {
  return vallist{std::string(value)};
}

vallist vallist_build(std::initializer_list<std::string_view> values) {
  return vallist(values.begin(), values.end());
}

void vallist_add(vallist &list, std::string_view value) {
  list.emplace_back(value);
}

void vallist_add2(vallist *list, std::size_t *tail, std::string_view value) {
  if (list == nullptr || tail == nullptr || (list->empty() && *tail != 0)) {
    KS_DEBUG(9, "vallist_add2(): invalid input\n");
    return;
  }
  list->emplace_back(value);
  *tail = list->size();
}

void vallist_push(vallist &list, std::string_view value) {
  list.emplace(list.begin(), value);
}

bool vallist_add_sorted(vallist &list, std::string_view value) {
  return insert_sorted(
      list, value, [](std::string_view a, std::string_view b) { return attr_name_cmp(a, b) < 0; });
}

bool vallist_add_sorted_exact(vallist &list, std::string_view value) {
  return insert_sorted(list, value, [](std::string_view a, std::string_view b) { return a < b; });
}

const std::string *vallist_find(const vallist &list, std::string_view value) {
  for (const std::string &each : list) {
    if (attr_name_equal(each, value)) return &each;
  }
  return nullptr;
}

bool vallist_intersect(const vallist &a, const vallist &b) {
  if (a.empty() || b.empty()) return true;
  return std::any_of(a.begin(), a.end(),
                     [&](const std::string &value) { return vallist_find(b, value) != nullptr; });
}

std::size_t vallist_sort(vallist &list, vallist_cmp compare, bool unique) {
  auto order = [&](const std::string &a, const std::string &b) {
    return compare ? compare(a, b) : attr_name_cmp(a, b);
  };
  std::stable_sort(list.begin(), list.end(),
                   [&](const std::string &a, const std::string &b) { return order(a, b) < 0; });
  if (unique) {
    list.erase(
        std::unique(list.begin(), list.end(),
                    [&](const std::string &a, const std::string &b) { return order(a, b) == 0; }),
        list.end());
  }
  return list.size();
}

std::string vallist_text(const vallist &list, std::size_t limit) {
  if (list.empty()) return "<empty>";
  std::string text;
  std::size_t shown = std::min(limit, list.size());
  for (std::size_t i = 0; i < shown; i++) {
    if (i != 0) text += ", ";
    text += list[i];
  }
  if (shown < list.size()) text += ", ...";
  return text;
}

}  // namespace qvr
