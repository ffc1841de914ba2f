// The source over the arguments of a call, and the prints that use it.
#include <cstring>
#include <string>

#include "format.h"
#include "text_convert.h"

namespace qvr {

namespace {

va_list &args_of(fmt_cursor_t &cursor) {
  return static_cast<fmt_native_cursor_t &>(cursor).ap;
}

void native_int(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.i = va_arg(args_of(cursor), int);
}

void native_uint(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.u = va_arg(args_of(cursor), unsigned);
}

void native_long(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.l = va_arg(args_of(cursor), long);
}

void native_llong(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.ll = va_arg(args_of(cursor), long long);
}

void native_double(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.d = va_arg(args_of(cursor), double);
}

void native_ldouble(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.ld = va_arg(args_of(cursor), long double);
}

void native_text(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  const char *text = va_arg(args_of(cursor), const char *);
  if (text == nullptr) text = "null";
  slot.s = {text, std::strlen(text)};
}

void native_pointer(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.p = va_arg(args_of(cursor), const void *);
}

void native_ulong(fmt_slot_t &slot, fmt_cursor_t &cursor, const char *) {
  slot.ul = va_arg(args_of(cursor), unsigned long);
}

}  // namespace

const fmt_source_t fmt_native_source = {
    native_int,    native_int,     native_uint, native_long,    native_llong,
    native_double, native_ldouble, native_text, native_pointer, native_ulong,
};

std::size_t i18n_snprintf(char *buffer, std::size_t capacity, const char *format, ...) {
  fmt_native_cursor_t cursor;
  va_start(cursor.ap, format);
  std::size_t length =
      i18n_vsnprintf(buffer, capacity, nullptr, fmt_native_source, nullptr, format, cursor);
  va_end(cursor.ap);
  return length;
}

std::size_t i18n_asprintf(std::unique_ptr<char[]> *text, const char *format, ...) {
  fmt_native_cursor_t cursor;
  va_start(cursor.ap, format);
  std::size_t length = i18n_vsnprintf(nullptr, 0, text, fmt_native_source, nullptr, format, cursor);
  va_end(cursor.ap);
  return length;
}

std::size_t fmt_vto_file(std::FILE *stream, const char *format, va_list args) {
  if (!text_converts_fd(fileno(stream))) {
    int written = std::vfprintf(stream, format, args);
    return written < 0 ? 0 : static_cast<std::size_t>(written);
  }
  fmt_native_cursor_t cursor;
  va_copy(cursor.ap, args);
  std::unique_ptr<char[]> text;
  std::size_t length =
      i18n_vsnprintf(nullptr, 0, &text, fmt_native_source, nullptr, format, cursor);
  va_end(cursor.ap);
  return length == 0 ? 0 : text_to_file(stream, {text.get(), length});
}

std::size_t fmt_to_file(std::FILE *stream, const char *format, ...) {
  va_list args;
  va_start(args, format);
  std::size_t length = fmt_vto_file(stream, format, args);
  va_end(args);
  return length;
}

std::size_t fmt_to_stdout(const char *format, ...) {
  va_list args;
  va_start(args, format);
  std::size_t length = fmt_vto_file(stdout, format, args);
  va_end(args);
  return length;
}

}  // namespace qvr
