// Text as the sources of manual pages (mdoc) take it.
#pragma once

#include <string>
#include <string_view>

namespace qvr {

// The text with nothing in it that the page language reads as its own, but for a "." at
// the start of a line.
std::string page_text(std::string_view text);
// The same as one quoted argument of a macro.
std::string page_argument(std::string_view text);

}  // namespace qvr
