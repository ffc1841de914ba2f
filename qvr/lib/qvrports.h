// Reading the ports and the other settings of the transport, once at start.
#pragma once

#include "errobj.h"
#include "resdb.h"

namespace qvr {

inline constexpr int START_TRIES = 15;  // a second apart, while the daemon is not there yet

// Reads the settings from qvrexecd on `host`, or without a host from the local resource database:
// multi-subnet state, port ranges, reverse DNS state, allowed authentication methods. When that
// fails, the ranges are those that a parent process left in the environment, if it did. `wait`:
// waits for the daemon. `keep`, when not null, takes over the open database of this host, if it was
// read. An error object or null. Main thread.
errobj_t *qvrports_init(const char *host, bool wait, resdb_ptr *keep = nullptr);

// Whether this machine has that name.
bool qvr_is_own_name(const char *host);

}  // namespace qvr
