#include "ks_clock.h"

#include <atomic>
#include <ctime>

namespace qvr {

namespace {

std::int64_t system_clock() {
  return std::time(nullptr);
}

std::atomic<std::int64_t (*)()> the_clock{system_clock};

}  // namespace

std::int64_t ks_clock_now() {
  return the_clock.load(std::memory_order_relaxed)();
}

void ks_set_clock(std::int64_t (*clock)()) {
  the_clock = clock != nullptr ? clock : system_clock;
}

}  // namespace qvr
