#include "debug_format.h"

#include "format.h"

namespace qvr {

std::string debug_format_v(const char *format, std::va_list args) {
  fmt_native_cursor_t cursor;
  va_copy(cursor.ap, args);
  std::unique_ptr<char[]> text;
  std::size_t size = i18n_vsnprintf(nullptr, 0, &text, fmt_native_source, nullptr, format, cursor);
  va_end(cursor.ap);
  return size == 0 ? std::string() : std::string(text.get(), size);
}

}  // namespace qvr
