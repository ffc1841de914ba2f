// The report driver: plan, fetch, match, rows, output.
#pragma once

#include "request.h"
#include "settings.h"

namespace qvr {

// Prints one report; main thread, session bound to the server. The request is the driver's own: it
// may take nodes out and set the sort order. The result is the exit status: 0 after a report, 1
// when there is nothing to print or a session failed, which has been told by a message then; the
// caller releases session and resources.
int run_report(const settings_t &settings, request_t &request);

}  // namespace qvr
