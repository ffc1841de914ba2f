// Debug output: the lines themselves. The test that opens a level is in debug_words.h.
#pragma once

#include <cstdarg>
#include <string>

#include "debug_words.h"

namespace qvr {

// A line without a level and so without the "-D" prefix.
void dprintf_raw(const char *format, ...) __attribute__((format(printf, 1, 2)));
void dprintf_level_v(int level, const char *format, std::va_list args)
    __attribute__((format(printf, 2, 0)));
// Writes only when the debug level is at least `level`; a line of level 0 begins with
// "Diagnostic: ".
void dprintf_file(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Writes to the standard error stream when the debug level is at least `level`. For a level above 0
// the variable QVR_STRICT_LEVEL picks one level out.
void strict_print(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The printing function of one level, for code that takes a function. Does not test the level.
template <int level>
__attribute__((format(printf, 1, 2))) void dprintf_at(const char *format, ...) {
  static_assert(level >= 0 && level <= 13);
  std::va_list args;
  va_start(args, format);
  dprintf_level_v(level, format, args);
  va_end(args);
}

// Text that is not debug output but goes out without an id: time and program name stand before it.
// When the thread keeps messages, a text that is neither notice nor warning becomes its last error.
void log_message(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The thread's record of messages. Closed at the start of a thread.
void thread_messages_open();
void thread_messages_close();
// The last error of the calling thread as text; empty when there is none. Valid until the next one.
const std::string &thread_last_message();

// "month/day/year hour:minute:second.microseconds" of now in local time.
std::string debug_time_text();

}  // namespace qvr
