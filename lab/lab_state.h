// What the daemons of one installation share.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "call_log.h"
#include "lab_catalogue.h"
#include "lab_credentials.h"
#include "lab_faults.h"
#include "lab_options.h"
#include "lab_sessions.h"

namespace qvr {

// A row of the port mapper (RFC 1833, version 2).
struct pmap_row {
  std::uint32_t program = 0, version = 0, protocol = 0, port = 0;
  bool own = false;  // of a daemon of the lab, which no caller takes away
};

struct lab_state {
  lab_options options;
  lab_catalogue catalogue;  // closed before the daemons start
  lab_faults faults;
  call_log log;
  lab_credentials credentials;
  lab_sessions sessions;

  std::mutex pmap_mutex;  // guards pmap
  std::vector<pmap_row> pmap;

  std::atomic<std::uint64_t> connections{0};
  struct {
    std::atomic<std::uint64_t> replies{0}, requests{0};  // bytes over TCP
    std::atomic<std::uint64_t> in_clear{0};              // calls for data outside of the channel
  } traffic;

  // Sleeps, but not longer than the lab runs. False when it is to end.
  bool pause(unsigned milliseconds) {
    std::unique_lock lock(stop_mutex);
    return !stop_wake.wait_for(lock, std::chrono::milliseconds(milliseconds),
                               [&] { return stopping.load(); });
  }
  std::mutex stop_mutex;
  std::condition_variable stop_wake;  // with stop_mutex
  std::atomic<bool> stopping{false};
};

}  // namespace qvr
