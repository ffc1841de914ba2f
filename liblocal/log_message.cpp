#include <pthread.h>

#include <array>
#include <ctime>
#include <memory>
#include <string>

#include "debug_format.h"
#include "debug_line.h"
#include "immortal.h"
#include "msg.h"
#include "msg_process.h"

namespace qvr {

namespace {

// The list of a thread that keeps its messages. A plain pointer, released by a thread key.
struct thread_messages_t {
  std::string last;
};
thread_local thread_messages_t *kept_messages = nullptr;

void drop_messages(void *messages) {
  kept_messages = nullptr;
  std::unique_ptr<thread_messages_t>(static_cast<thread_messages_t *>(messages));
}

pthread_key_t messages_key() {
  static const pthread_key_t key = [] {
    pthread_key_t made{};
    pthread_key_create(&made, drop_messages);
    return made;
  }();
  return key;
}

bool below_error(const std::string &text) {
  for (const char *word : {"notice,", "notice:", "warning,", "warning:"}) {
    if (text.find(word) != std::string::npos) return true;
  }
  return false;
}

std::string time_and_program() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  std::array<char, 64> buffer{};
  std::string prefix;
  if (localtime_r(&now, &local) != nullptr) {
    prefix.assign(buffer.data(),
                  std::strftime(buffer.data(), buffer.size(), "%m/%d/%y %H:%M:%S ", &local));
  }
  return prefix + msg_program() + ": ";
}

}  // namespace

void thread_messages_open() {
  if (kept_messages != nullptr) return;
  kept_messages = std::make_unique<thread_messages_t>().release();
  pthread_setspecific(messages_key(), kept_messages);
}

void thread_messages_close() {
  if (kept_messages == nullptr) return;
  pthread_setspecific(messages_key(), nullptr);
  drop_messages(kept_messages);
}

const std::string &thread_last_message() {
  static immortal<const std::string> none;
  return kept_messages != nullptr ? kept_messages->last : *none;
}

void log_message(const char *format, ...) {
  std::va_list args;
  va_start(args, format);
  std::string text = debug_format_v(format, args);
  va_end(args);
  if (kept_messages != nullptr && !below_error(text)) kept_messages->last = text;
  std::string line = time_and_program() + text;
  constexpr std::int32_t error_severity = 3;
  msg_print(0, error_severity, MSG_STDERR, "%s", {{MSG_ARG_TEXT, line}});
}

}  // namespace qvr
