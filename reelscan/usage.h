// How the command is called.
#pragma once

#include <string_view>

namespace qvr {

// Prints the text of a refusal to the error stream, unless it is null, then the usage text to the
// standard output. The exit status that goes with it, 1.
int usage(std::string_view program, const char *refusal = nullptr);

}  // namespace qvr
