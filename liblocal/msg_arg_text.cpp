// Numbers as message arguments: their texts in the small ring.
#include <cstdio>

#include "msg.h"
#include "msg_rings.h"

namespace qvr {

namespace {

template <class Number>
const char *number_text(const char *format, Number value) {
  char *buffer = msg_small_buffer();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  std::snprintf(buffer, MSG_SMALL_BYTES, format, value);
#pragma GCC diagnostic pop
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
