// The inventories of clients and volumes: tab-separated lines with no report behind them.
#pragma once

namespace qvr {

// -C and -O. Main thread, session bound. They print to the standard output and never fail.
void client_inventory();
void volume_inventory();

}  // namespace qvr
