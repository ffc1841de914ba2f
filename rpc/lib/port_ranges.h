// The ranges of ports on which daemons listen and from which clients connect. Client start reads
// them and puts them here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ks_mutex.h"

namespace qvr {

enum port_range_type : int {
  PORTS_SERVICE = 0,     // on which daemons listen
  PORTS_CONNECTION = 1,  // from which clients connect
  PORTS_RESERVED = 2,    // built in: 600 to 1023
};
inline constexpr int PORT_RANGE_TYPES = 3;

// Adds the ports `low` to `high`, merged into a range that they touch or overlap. Refused silently:
// the reserved type, 0 to 0, and bounds that are no range of ports. The part of a connection range
// below 1024 is dropped. Any thread.
void port_range_add(long low, long high, port_range_type type);
// Empties the service and connection lists and the excluded ports.
void port_ranges_reset();
std::size_t port_range_count(port_range_type type);
// "%d-%d, %d-%d  ", "0-0" for an empty list.
std::string port_range_text(port_range_type type);

// A port that is never handed out; 7937 and 7938 always are such. A second time changes nothing.
void port_exclude(std::uint16_t port);
bool port_is_excluded(std::uint16_t port);

// The insides, for handing out ports while the lock is held.
struct port_range_t {
  int low, high;
  int next;  // to hand out
};
struct rpc_port_ranges_t {
  struct list_t {
    std::size_t count = 0;  // ports
    std::vector<port_range_t> nodes;
  };
  KSMutex *lock;  // guards all below
  list_t lists[PORT_RANGE_TYPES];
  std::vector<std::uint16_t> excluded;
};
rpc_port_ranges_t &rpc_port_ranges();
// The lock is held.
bool port_is_excluded_locked(const rpc_port_ranges_t &ranges, int port);
// A number from 0 to `bound` - 1. The lock is held.
std::size_t port_random(std::size_t bound);

}  // namespace qvr
