#include <cerrno>

#include "msg.h"
#include "msg_console.h"
#include "msg_process.h"

namespace qvr {

namespace {

constexpr std::uint32_t SLOW_FLAGS =
    MSG_RAW_LOG | MSG_LOG_PATH | MSG_EVENT | MSG_RAW_LOG_TOO | MSG_EVENT_TOO;

void print_fast(std::int32_t id, std::uint32_t flags, std::string_view text) {
  bool forced = id != 0 && msg_outlets().force_id != 0;
  bool headed = id != 0 && (forced || (flags & MSG_NO_PREFIX) == 0);
  if ((flags & MSG_STDOUT) != 0) {
    if (forced) {
      console_write_headed(stdout, id, ": ", text, "");
    } else {
      console_write(stdout, text);
    }
  }
  if ((flags & MSG_STDERR) != 0) {
    if (headed) {
      console_write_headed(stderr, id, ": ", text, "");
    } else {
      console_write(stderr, text);
    }
  }
}

}  // namespace

void msg_print(std::int32_t id, std::int32_t code, std::uint32_t flags, const char *format,
               msg_pairs args) {
  if (format == nullptr) return;
  const int kept_errno = errno;
  constexpr std::int32_t highest_severity = 5;
  if (code <= highest_severity && code >= 0) code *= 1000;
  msg_outlets_t &outlets = msg_outlets();
  if ((flags & MSG_RAW_INSTEAD) != 0 && outlets.raw_log != nullptr) {
    flags = (flags & ~std::uint32_t{MSG_STDOUT | MSG_STDERR}) | MSG_RAW_LOG;
  }
  msg_hook_t hook = outlets.hook;
  bool fast = (flags & SLOW_FLAGS) == 0 && !outlets.service;
  if (hook != nullptr || fast) {
    const char *text = msg_text(id, nullptr, format, args);
    if (hook != nullptr) hook(id, code, flags, text);
    if (fast) print_fast(id, flags, text);
  }
  if (!fast) msg_deliver(err_create(id, code, format, args), flags);
  errno = kept_errno;
}

}  // namespace qvr
