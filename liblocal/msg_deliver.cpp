#include <string>

#include "msg.h"
#include "msg_console.h"
#include "msg_log.h"
#include "msg_process.h"
#include "text_convert.h"

namespace qvr {

namespace {

constexpr std::uint32_t RAW_FLAGS = MSG_RAW_LOG | MSG_RAW_LOG_TOO;
constexpr std::uint32_t LOG_FLAGS = RAW_FLAGS | MSG_LOG_PATH;
constexpr std::uint32_t CONSOLE_FLAGS = MSG_STDOUT | MSG_STDERR;

void write_line(std::FILE *stream, const std::string &line) {
  text_to_file(stream, line);
  std::fflush(stream);
}

// A raw line stays as it is: its lengths count bytes.
void write_raw_line(std::FILE *stream, const std::string &line) {
  std::fwrite(line.data(), 1, line.size(), stream);
  std::fflush(stream);
}

// A message that goes to the console alone.
void deliver_to_console(const errobj_t &error, std::uint32_t flags, const std::string &text) {
  std::int32_t id = error.message.id;
  bool forced = id != 0 && msg_outlets().force_id != 0;
  bool headed = id != 0 && (forced || (flags & MSG_NO_PREFIX) == 0);
  std::string line = id != 0 ? text + '\n' : text;
  if ((flags & MSG_STDOUT) != 0) {
    if (forced) {
      console_write_headed(stdout, id, ": ", text, "\n");
    } else {
      console_write(stdout, line);
    }
  }
  if ((flags & MSG_STDERR) != 0) {
    if (headed) {
      console_write_headed(stderr, id, ": ", text, "\n");
    } else {
      console_write(stderr, line);
    }
  }
}

// The console copy of a message that takes the logging path.
void copy_to_console(const errobj_t &error, std::uint32_t flags, const std::string &text) {
  std::int32_t id = error.message.id;
  if ((flags & MSG_STDOUT) != 0) console_write(stdout, text);
  if ((flags & MSG_STDERR) == 0) return;
  if (id == 0 || (flags & MSG_NO_PREFIX) != 0) {
    console_write(stderr, text);
  } else {
    console_write_headed(stderr, id, ":", text, "");
  }
}

void deliver_to_logs(const errobj_t &error, std::uint32_t flags, const std::string &text) {
  msg_outlets_t &outlets = msg_outlets();
  std::uint32_t mode = msg_log_mode_now();
  bool service = outlets.service;
  bool identity = (mode & MSG_MODE_IDENTITY) != 0;
  if ((mode & MSG_MODE_CONSOLE_ONLY) != 0 && (flags & CONSOLE_FLAGS) != 0) {
    flags &= ~std::uint32_t{MSG_RAW_LOG};
  }
  if ((mode & MSG_MODE_FURTHER) != 0) {
    if (std::FILE *further = outlets.further_log) {
      write_line(further, msg_further_line(error, text.c_str(), identity));
      if (flags == MSG_RAW_LOG_TOO) return;
    }
  }
  std::string raw = msg_raw_line(error) + '\n';
  bool to_raw = (flags & RAW_FLAGS) != 0;
  if (std::FILE *raw_log = outlets.raw_log; raw_log != nullptr && to_raw) {
    write_raw_line(raw_log, raw);
  }
  bool quiet = (mode & MSG_MODE_QUIET) != 0;
  std::FILE *rendered_log = outlets.rendered_log;
  if (rendered_log != nullptr && (to_raw || service || !quiet)) {
    write_line(rendered_log, msg_rendered_line(error, text.c_str(), identity));
  }
  if (!service) {
    copy_to_console(error, flags, text);
  } else if (!quiet) {
    if ((flags & MSG_STDOUT) != 0) console_write(stdout, raw);
    if ((flags & MSG_STDERR) != 0) console_write(stderr, raw);
  }
}

}  // namespace

void msg_deliver(const errobj_t *error, std::uint32_t flags) {
  if (error == nullptr) return;
  msg_outlets_t &outlets = msg_outlets();
  msg_handler_t handler = outlets.handler;
  if (handler != nullptr) {
    handler(error, flags);
    return;
  }
  // A copy: an outlet may make errors of its own and come round to this slot of the ring.
  errobj_t kept = *error;
  std::string text = msg_render(nullptr, kept.message);
  msg_event_t event = outlets.event;
  if (event != nullptr && (flags & (MSG_EVENT | MSG_EVENT_TOO)) != 0) event(&kept, flags);
  if ((flags & LOG_FLAGS) == 0 && !outlets.service) {
    deliver_to_console(kept, flags, text);
  } else {
    deliver_to_logs(kept, flags, text);
  }
}

}  // namespace qvr
