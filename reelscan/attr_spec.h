// The language of attribute constraints.
#pragma once

#include <string_view>

#include "attrlist.h"

namespace qvr {

// Reads a list of attributes that a save set must carry, as behind -A, into `list`; a name with "!"
// in front must not be carried. Null, or the text of the refusal, as for parse_query_spec(). A null
// text (data() == nullptr) adds nothing.
const char *parse_attr_spec(std::string_view text, attrlist &list);

}  // namespace qvr
