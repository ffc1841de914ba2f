// The plan's request, sent.
#pragma once

#include "plan.h"
#include "queries.h"

namespace qvr {

// Volumes. Records without identifier are dropped.
vol_list fetch_planned_volumes(const plan_request_t &request);

// Save sets. An identifier that the query's
// text does not hold finds nothing.
ss_list fetch_planned_save_sets(const plan_request_t &request);

}  // namespace qvr
