#include <cstdarg>

#include "format.h"
#include "ks_wrappers.h"

namespace qvr {

std::size_t ks_snprintf(char *to, std::size_t size, const char *format, ...) {
  if (to == nullptr || size == 0) return 0;
  fmt_native_cursor_t cursor;
  va_start(cursor.ap, format);
  std::size_t length =
      i18n_vsnprintf(to, size, nullptr, fmt_native_source, nullptr, format, cursor);
  va_end(cursor.ap);
  return length;
}

}  // namespace qvr
