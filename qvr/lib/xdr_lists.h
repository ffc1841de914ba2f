// Linked lists on the wire (RFC 4506, 4.19): decoded in a loop, a word at a time.
#pragma once

#include "xdr.h"

namespace qvr {

// A presence word, then nodes, each followed by the word that says whether another comes. `get`
// reads one node.
template <class Get>
bool xdr_get_optional_list(XDR &xdr, Get get) {
  bool more;
  if (!xdr.get_bool(more)) return false;
  while (more) {
    if (!get() || !xdr.get_bool(more)) return false;
  }
  return true;
}

template <class Range, class Put>
bool xdr_put_optional_list(XDR &xdr, const Range &items, Put put) {
  for (const auto &item : items) {
    if (!xdr.put_u32(1) || !put(item)) return false;
  }
  return xdr.put_u32(0);
}

// The direct form has no presence word: its first node is always there.
template <class Get>
bool xdr_get_direct_list(XDR &xdr, Get get) {
  bool more;
  do {
    if (!get() || !xdr.get_bool(more)) return false;
  } while (more);
  return true;
}

}  // namespace qvr
