// What messages know of the process: its names, the outlets beside the two console streams, and
// the modes of the logs.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

#include "errobj.h"

namespace qvr {

// Bits of the log mode.
enum msg_log_mode : std::uint32_t {
  MSG_MODE_QUIET = 16,         // no console copy in a service; elsewhere fewer rendered lines
  MSG_MODE_CONSOLE_ONLY = 32,  // a message with a console flag leaves the raw log out
  MSG_MODE_IDENTITY = 64,      // rendered lines carry thread, process and tag
  MSG_MODE_FURTHER = 128,      // each message also to the further stream
};

using msg_hook_t = void (*)(std::int32_t id, std::int32_t code, std::uint32_t flags,
                            const char *text);
using msg_event_t = void (*)(const errobj_t *error, std::uint32_t flags);
using msg_handler_t = void (*)(const errobj_t *error, std::uint32_t flags);
using msg_mode_source_t = std::uint32_t (*)();

// Process-wide. A program sets them before it starts threads; null takes an outlet away. The
// streams stay the caller's, who takes them away here before closing them.
struct msg_outlets_t {
  std::atomic<msg_hook_t> hook{nullptr};        // sees the rendered text of each message
  std::atomic<msg_event_t> event{nullptr};      // flags MSG_EVENT and MSG_EVENT_TOO
  std::atomic<msg_handler_t> handler{nullptr};  // a service's: replaces all delivery
  std::atomic<std::FILE *> raw_log{nullptr};
  std::atomic<std::FILE *> rendered_log{nullptr};
  std::atomic<std::FILE *> further_log{nullptr};
  std::atomic<std::uint32_t> log_mode{0};
  std::atomic<msg_mode_source_t> mode_source{nullptr};  // asked for the mode instead of log_mode
  std::atomic<bool> service{false};                     // a service with a log of its own
  std::atomic<int> force_id{0};  // non-zero: ids stand on both console streams
  std::atomic<std::int32_t> tag{0};
};

// The outlets; the first call reads QVR_FORCE_MSG_ID.
msg_outlets_t &msg_outlets();

std::uint32_t msg_log_mode_now();

// Opens `path` for append as the rendered log; false when it cannot be opened (errno tells).
bool msg_open_rendered_log(const char *path);

// The host that error objects name; "unknown" until the host layer sets one. Making an error never
// resolves names.
void msg_set_host(std::string name);
std::string msg_host();
std::string msg_program();
std::uint32_t msg_thread_id();

}  // namespace qvr
