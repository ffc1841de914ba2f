// XDR of the types that more than one protocol carries.
#pragma once

#include "attrlist.h"
#include "errobj.h"
#include "xdr.h"

namespace qvr {

// The series form: name, has-values, values, another-follows. An empty list is one attribute with
// an empty name and no values. A name above 64 bytes fails the decode. No recursion.
bool xdr_put_attrlist(XDR &xdr, const attrlist &list);
bool xdr_get_attrlist(XDR &xdr, attrlist &list);
// With a presence word in front: an empty list goes out as absent.
bool xdr_put_optional_attrlist(XDR &xdr, const attrlist &list);
bool xdr_get_optional_attrlist(XDR &xdr, attrlist &list);

// The error part of replies: code and a text of at most 18432 bytes, plain or structured.
bool xdr_put_errinfo(XDR &xdr, const errobj_t *error);
// The result lies in the thread's ring; null in `error` when the code is 0.
bool xdr_get_errinfo(XDR &xdr, errobj_t *&error);

}  // namespace qvr
