// The clock of everything that has an age: caches, lists with expiry, tickets.
#pragma once

#include <cstdint>

namespace qvr {

// Seconds since 1970. Any thread.
std::int64_t ks_clock_now();
// Puts another clock in place of the system's; null brings the system's back. For tests.
void ks_set_clock(std::int64_t (*clock)());

}  // namespace qvr
