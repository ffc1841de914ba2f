// Attribute lists in cells.
#pragma once

#include "cell_text.h"
#include "packed_attrs.h"

namespace qvr {

// "name:value, value; name:value", without the clones' retention. A "+" ends a text that did not
// fit. Any thread.
void rsc_attrs_text(const packed_attrs &attrs, cell_text &out);

// The number that an attribute's first value begins with, behind blanks; 0 when there is none.
std::uint64_t attr_number(std::string_view value);
std::int64_t attr_signed_number(std::string_view value);

}  // namespace qvr
