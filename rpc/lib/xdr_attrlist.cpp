#include <algorithm>

#include "xdr_shared.h"

namespace qvr {

namespace {

bool put_attr(XDR &xdr, std::string_view name, const vallist &values, bool another) {
  if (name.size() > ATTR_NAME_MAX) return false;
  if (!xdr.put_counted(name) || !xdr.put_bool(!values.empty())) return false;
  for (std::size_t i = 0; i < values.size(); i++) {
    if (!xdr.put_counted(values[i]) || !xdr.put_bool(i + 1 < values.size())) return false;
  }
  return xdr.put_bool(another);
}

// A text ends at its first NUL, whatever its count says.
bool get_text(XDR &xdr, std::string &text, std::uint32_t limit) {
  if (!xdr.get_counted(text, limit)) return false;
  text.resize(std::min(text.size(), text.find('\0')));
  return true;
}

bool get_attr(XDR &xdr, attr_t &attr, bool &another) {
  bool more;
  if (!get_text(xdr, attr.name, ATTR_NAME_MAX) || !xdr.get_bool(more)) return false;
  while (more) {
    // A value comes into its own string first: a list never holds one that did not arrive whole.
    std::string value;
    if (!get_text(xdr, value, XDR_MAX) || !xdr.get_bool(more)) return false;
    attr.values.push_back(std::move(value));
  }
  return xdr.get_bool(another);
}

}  // namespace

bool xdr_put_attrlist(XDR &xdr, const attrlist &list) {
  if (list.empty()) return put_attr(xdr, {}, {}, false);
  for (std::size_t i = 0; i < list.size(); i++) {
    if (!put_attr(xdr, list[i].name, list[i].values, i + 1 < list.size())) return false;
  }
  return true;
}

bool xdr_get_attrlist(XDR &xdr, attrlist &list) {
  list.clear();
  for (bool another = true; another;) {
    attr_t attr;
    if (!get_attr(xdr, attr, another)) return false;
    list.push_back(std::move(attr));
  }
  attrlist_restore_order(list);
  // One attribute without name and values stands for the empty list, however often it was sent.
  if (list.size() == 1 && list.front().name.empty() && list.front().values.empty()) list.clear();
  return true;
}

bool xdr_put_optional_attrlist(XDR &xdr, const attrlist &list) {
  return xdr.put_bool(!list.empty()) && (list.empty() || xdr_put_attrlist(xdr, list));
}

bool xdr_get_optional_attrlist(XDR &xdr, attrlist &list) {
  bool present;
  list.clear();
  return xdr.get_bool(present) && (!present || xdr_get_attrlist(xdr, list));
}

}  // namespace qvr
