// The formatted text of a debug line.
#pragma once

#include <cstdarg>
#include <string>

namespace qvr {

std::string debug_format_v(const char *format, std::va_list args)
    __attribute__((format(printf, 1, 0)));

}  // namespace qvr
