// The inventories of clients and volumes: tab-separated lines with no report behind them.
#pragma once

namespace qvr {

// -C and -O. Main thread, session bound. They print to the standard output; the result is the exit
// status: 1 when the session failed, which the error stream has been told.
int client_inventory();
int volume_inventory();

}  // namespace qvr
