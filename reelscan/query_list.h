// The list of constraints: order, merging and what may be said twice.
#pragma once

#include "constraint.h"
#include "query_value.h"

namespace qvr {

// Enters a value, by the rules of its field, into the node of its code or a new one. Null, or the
// text of the refusal, after which the list is as it was.
const char *enter_constraint(query_constraints_t &list, const mr_t &field, comparator_t comparator,
                             query_value_t &&value);

}  // namespace qvr
