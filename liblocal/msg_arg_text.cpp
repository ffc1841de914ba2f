// Numbers as message arguments: their texts in the small ring.
#include <cstdarg>
#include <cstdio>

#include "msg.h"
#include "msg_rings.h"

namespace qvr {

namespace {

__attribute__((format(printf, 1, 2))) const char *number_text(const char *format, ...) {
  char *buffer = msg_small_buffer();
  std::va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, MSG_SMALL_BYTES, format, args);
  va_end(args);
  return buffer;
}

}  // namespace

const char *msg_arg_int(int value) {
  return number_text("%d", value);
}

const char *msg_arg_long(long value) {
  return number_text("%ld", value);
}

const char *msg_arg_ulong(unsigned long value) {
  return number_text("%lu", value);
}

const char *msg_arg_uint(unsigned value) {
  return number_text("%u", value);
}

const char *msg_arg_char(char value) {
  return number_text("%c", value);
}

}  // namespace qvr
