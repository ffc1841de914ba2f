// Binding a client's socket to a port of the connection range.
#pragma once

#include <cstddef>
#include <string>

namespace qvr {

// Binds a socket of that family (IPv4 or IPv6) to a free port of the connection range, or to any
// port when there is no range. 0, or -1 with errno: EADDRNOTAVAIL when no port was to be had,
// EPFNOSUPPORT for another family. Holds the lock of the ranges. Any thread.
int rpc_bind_from_range(int socket, int family);
// The number of ports of the connection range, 0 without one, and the range as text.
std::size_t rpc_connection_range_count();
std::string rpc_connection_range_text();

}  // namespace qvr
