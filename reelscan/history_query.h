// The question that -h asks the media database.
#pragma once

#include "constraint.h"
#include "errobj.h"
#include "queries.h"

namespace qvr {

inline constexpr std::int64_t HISTORY_COUNT = 1000;  // records asked for

// Translates the constraints of the query. False when an ssid does not parse.
bool history_query(const query_constraints_t &constraints, history_query_t &query);

}  // namespace qvr
