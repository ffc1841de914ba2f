#include <cstdio>
#include <cstdlib>

#include "debug_format.h"
#include "debug_line.h"
#include "msg_console.h"

namespace qvr {

void strict_print(int level, const char *format, ...) {
  if (debug_words.level < level) return;
  const char *only = level > 0 ? std::getenv("QVR_STRICT_LEVEL") : nullptr;
  if (only != nullptr && std::atoi(only) != level) return;
  std::va_list args;
  va_start(args, format);
  console_write(stderr, debug_format_v(format, args));
  va_end(args);
}

}  // namespace qvr
