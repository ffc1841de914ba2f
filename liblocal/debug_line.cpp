#include "debug_line.h"

#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "debug_files.h"
#include "debug_format.h"
#include "local_time.h"
#include "msg.h"
#include "msg_console.h"
#include "msg_process.h"

namespace qvr {

namespace {

std::string local_time_text(std::time_t seconds) {
  std::tm local{};
  return local_fields(seconds, local) ? log_time_text(local) : "<NULL>";
}

// The text with its prefix goes to the debug files or out as a message without an id.
void write_line(int level, std::string_view message) {
  std::string text;
  if (debug_words.time_stamps != 0) text = debug_time_text() + ' ';
  if (level >= 0) text += msg_program() + "-D" + std::to_string(level) + ' ';
  text += message;
  if (debug_files_write(text)) return;
  constexpr std::int32_t debug_code = 50000;
  msg_print(0, debug_code, MSG_STDERR, "%s", {{MSG_ARG_TEXT, text}});
}

}  // namespace

std::string debug_time_text() {
  timeval now{};
  if (gettimeofday(&now, nullptr) != 0) return "no-time";
  std::array<char, 16> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%.6lu",
                static_cast<unsigned long>(now.tv_usec % 1000000));
  return local_time_text(now.tv_sec) + fraction.data();
}

void dprintf_level_v(int level, const char *format, std::va_list args) {
  int kept = errno;  // a line may stand between a failed call and the use of its reason
  write_line(level, debug_format_v(format, args));
  errno = kept;
}

void dprintf_level(int level, const char *format, ...) {
  std::va_list args;
  va_start(args, format);
  dprintf_level_v(level, format, args);
  va_end(args);
}

void dprintf_raw(const char *format, ...) {
  std::va_list args;
  va_start(args, format);
  dprintf_level_v(-1, format, args);
  va_end(args);
}

void dprintf_file(int level, const char *format, ...) {
  if (debug_words.level < level) return;
  std::va_list args;
  va_start(args, format);
  std::string message = debug_format_v(format, args);
  va_end(args);
  write_line(level, level == 0 ? "Diagnostic: " + message : message);
}

void unexpected_error(const char *path, int line, const char *text) {
  KS_DEBUG(1, "An unexpected error occured in file: %s, line: %d, message = \"%s\"\n", path, line,
           text);
}

}  // namespace qvr
