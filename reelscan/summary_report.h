// The summary: how much was saved in a period.
#pragma once

#include <string_view>

#include "request.h"
#include "settings.h"

namespace qvr {

// Prints the summary of -X. `server` is the canonical name of the server. Main thread, session
// bound; the result is the exit status, as for run_report().
int summary_report(const settings_t &settings, request_t &request, std::string_view server);

}  // namespace qvr
