// The history: change records of save sets and clones.
#pragma once

#include "request.h"
#include "settings.h"

namespace qvr {

// Prints the report of -h. Main thread, session bound; the result is the exit status, as for
// run_report().
int history_report(const settings_t &settings, request_t &request);

}  // namespace qvr
