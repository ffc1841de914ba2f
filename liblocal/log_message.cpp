#include <ctime>
#include <string>

#include "debug_format.h"
#include "debug_line.h"
#include "immortal.h"
#include "local_time.h"
#include "msg.h"
#include "msg_process.h"
#include "per_thread.h"

namespace qvr {

namespace {

// The list of a thread that keeps its messages.
struct thread_messages_t {
  std::string last;
};
using kept_messages = per_thread<thread_messages_t>;

bool below_error(const std::string &text) {
  for (const char *word : {"notice,", "notice:", "warning,", "warning:"}) {
    if (text.find(word) != std::string::npos) return true;
  }
  return false;
}

std::string time_and_program() {
  std::tm local{};
  std::string prefix;
  if (local_fields(std::time(nullptr), local)) prefix = log_time_text(local) + ' ';
  return prefix + msg_program() + ": ";
}

}  // namespace

void thread_messages_open() {
  kept_messages::get();
}

void thread_messages_close() {
  kept_messages::drop();
}

const std::string &thread_last_message() {
  static immortal<const std::string> none;
  const thread_messages_t *messages = kept_messages::find();
  return messages != nullptr ? messages->last : *none;
}

void log_message(const char *format, ...) {
  std::va_list args;
  va_start(args, format);
  std::string text = debug_format_v(format, args);
  va_end(args);
  thread_messages_t *messages = kept_messages::find();
  if (messages != nullptr && !below_error(text)) messages->last = text;
  std::string line = time_and_program() + text;
  constexpr std::int32_t error_severity = 3;
  msg_print(0, error_severity, MSG_STDERR, "%s", {{MSG_ARG_TEXT, line}});
}

}  // namespace qvr
