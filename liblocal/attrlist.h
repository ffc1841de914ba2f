// Attribute lists and value lists, the one general container of the house.
//
// A vallist is the values of one attribute in order. An attrlist is sorted by name under a fold of
// the ASCII letters to upper case, no two attributes of one name. Both are values: copying copies,
// the destructor releases, and the empty list stands for no list.
//
// Where an operation takes a value, a view without data (std::string_view{}, never "") stands for
// no value. What a lookup hands back is borrowed and valid until its list changes. Any thread, as
// long as no other changes the same list.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "errobj.h"
#include "function_view.h"

namespace qvr {

using vallist = std::vector<std::string>;

struct attr_t {
  std::string name;
  vallist values;
  bool operator==(const attr_t &) const = default;
};

using attrlist = std::vector<attr_t>;

inline constexpr std::size_t ATTR_NAME_MAX = 64;  // on the wire

// Below, equal to or above zero, in the order of attribute names: ASCII letters folded to upper
// case, all other bytes as they are, so that "_" sorts behind the letters. Values that are compared
// without regard to case use the same order.
int attr_name_cmp(std::string_view a, std::string_view b);
bool attr_name_equal(std::string_view a, std::string_view b);

// --- value lists

vallist vallist_new(std::string_view value);  // no value makes an empty one
vallist vallist_build(std::initializer_list<std::string_view> values);
void vallist_add(vallist &list, std::string_view value);
// Appends with an end that the caller keeps: `tail` counts the values. A null list or tail, or an
// empty list with a tail, adds nothing.
void vallist_add2(vallist *list, std::size_t *tail, std::string_view value);
void vallist_push(vallist &list, std::string_view value);  // in front
// Into a sorted list; false, and nothing added, when the value is there already.
bool vallist_add_sorted(vallist &list, std::string_view value);        // without regard to case
bool vallist_add_sorted_exact(vallist &list, std::string_view value);  // byte by byte
// The first value that is equal without regard to case, or null.
const std::string *vallist_find(const vallist &list, std::string_view value);
// True when the lists share a value without regard to case, and when either is empty.
bool vallist_intersect(const vallist &a, const vallist &b);
// Sorts, without regard to case unless a comparison (below, equal to or above zero) is given; with
// `unique` later equal values go. Equal values keep their order. Returns the count.
using vallist_cmp = function_view<int(const std::string &, const std::string &)>;
std::size_t vallist_sort(vallist &list, vallist_cmp compare, bool unique);
// The first `limit` values joined by ", ", and ", ..." behind them when there are more; "<empty>"
// for the empty list.
std::string vallist_text(const vallist &list, std::size_t limit);

// --- attributes

// No name makes an empty name; no value, or an empty one, makes no values.
attr_t attr_new(std::string_view name, std::string_view value = {});
bool attr_has(const attr_t &attr, std::string_view value);  // without regard to case

// --- attribute lists

// Replace: afterwards the attribute has exactly these values. The name of an attribute that is
// there stays as it is written there.
attr_t &attrlist_set(attrlist &list, std::string_view name, std::string_view value);
attr_t &attrlist_setv(attrlist &list, std::string_view name, vallist values);
attr_t &attrlist_set_take(attrlist &list, std::string_view name, vallist &&values);
// Add: makes the attribute when it is absent, else appends the value when there is one.
attr_t &attrlist_add(attrlist &list, std::string_view name, std::string_view value);
// Makes the attribute when it is absent; adds no value.
attr_t &attrlist_add(attrlist &list, std::string_view name);
attr_t &attrlist_addv(attrlist &list, std::string_view name, const vallist &values);

const attr_t *attrlist_find(const attrlist &list, std::string_view name);
// The same, byte by byte.
const attr_t *attrlist_find_exact(const attrlist &list, std::string_view name);
// The first value, or null when the attribute is missing or has none.
const std::string *attrlist_first(const attrlist &list, std::string_view name);
bool attrlist_has(const attrlist &list, std::string_view name, std::string_view value);
bool attrlist_has_any(const attrlist &list, std::string_view name, const vallist &values);

// Merges a copy of `from`; an attribute of the same name replaces the old one.
void attrlist_merge(attrlist &list, const attrlist &from);
bool attrlist_remove(attrlist &list, std::string_view name);
// A list from rows of a name and its values; a name without values is made all the same.
struct attrlist_row_t {
  std::string_view name;
  std::initializer_list<std::string_view> values = {};
};
attrlist attrlist_build(std::initializer_list<attrlist_row_t> rows);
// True when every attribute of `a` is in `b` and they share a value (or one of them has none).
bool attrlist_subset(const attrlist &a, const attrlist &b);
// Brings attributes in any order into the order of names; of equal names the first stays.
void attrlist_restore_order(attrlist &list);

// --- text forms (attr_text.cpp)

// One line: name: "first value"; for each attribute that has values; further values are told by
// ", ..." inside the quotes. False, and no text, when there is nothing to pack.
bool attr_pack(const attrlist &list, std::string &text);
// Back to a list. An empty text or a list that is not empty is an error; what does not parse at the
// end is ignored.
errobj_t *attr_upack(std::string_view text, attrlist &list);

enum attr_print_flag : unsigned {
  ATTR_PRINT_MASKED = 1,    // every value as "*******"
  ATTR_PRINT_RAW = 2,       // never render a value as a message
  ATTR_PRINT_MESSAGES = 4,  // render every value as a message
  ATTR_PRINT_COMPACT = 8,   // the name is not padded
};

// Appends one attribute for a person to read: the name to the right of 28 cells, the values in
// quoted form, wrapped at `width` cells with an indent of 30, and ";\n". `indent` moves all of it
// to the right by so many cells.
void attr_print(std::string &out, std::size_t width, const attr_t &attr, int indent,
                unsigned flags);
// The quoted form of a value: in double quotes when it needs them, with a backslash and a newline
// after each `limit` characters (0: never).
std::string attr_quote(std::string_view value, std::size_t limit);
// From now on values of attributes whose name holds "password" print as "*******". Process-wide.
void attr_mask_passwords(bool mask);

}  // namespace qvr
