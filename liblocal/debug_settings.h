// Settings that can be changed while a program runs: a file with "name=value" and SIGUSR2.
#pragma once

#include <atomic>
#include <string_view>

namespace qvr {

// One-shot and tuning flags beside the words of debug_words.h. Process-wide and read without a
// lock; who acts on a one-shot flag sets it back to 0.
struct debug_flags_t {
  std::atomic<int> print_dev_info{0};
  std::atomic<int> print_auth_info{0};
  std::atomic<int> flush_dns_cache{0};
  std::atomic<int> print_dns_cache{0};
  std::atomic<int> print_inactive_clients{0};
  std::atomic<int> log_dns_threshold{0};  // seconds; 0: off
  std::atomic<int> jukebox_throttle{0};
  std::atomic<int> drive_steal_exclusion{30};
  std::atomic<int> patch_debug{0};
  std::atomic<int> print_device_selection{0};
  std::atomic<int> jobsdb_full_purge{0};
};

extern debug_flags_t debug_flags;

// Acts on one setting. Tells of the change, or of a value that is none, on descriptor 2; a name
// that is unknown does nothing. Safe in a signal handler.
void debug_settings_act(std::string_view text);

// Installs the handler of SIGUSR2: it reads the file "ksdbg.tmp" in the installation's temporary
// directory, acts on its first 1024 bytes less the last one, and deletes it. False when the handler
// cannot be installed. The directory is that of the time of this call.
bool debug_settings_install();

}  // namespace qvr
