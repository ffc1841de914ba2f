// The two console streams.
#pragma once

#include <cstdio>
#include <string_view>

namespace qvr {

// Writes to a console stream in the locale's code set, with one call. What stands in standard
// output is written before anything goes to standard error, so that the two keep their order.
void console_write(std::FILE *stream, std::string_view text);

// "%d:%s: %s" or "%d:%s:%s" of id, program and text; `end` is appended.
void console_write_headed(std::FILE *stream, std::int32_t id, std::string_view separator,
                          std::string_view text, std::string_view end);

}  // namespace qvr
