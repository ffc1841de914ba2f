// What debugging a host's administrator asks of a program at its start.
#pragma once

#include <string_view>

#include "function_view.h"

namespace qvr {

// Reads "qvrdebugconfig" in the debug directory: lines of "program=level". A line for this program,
// in upper or lower case, sets the debug level, which message 190259 tells. Does nothing without
// the file.
void debug_config_read();

// Waiting for a debugger. A program that allows it arms the wait; `reelscan` does not. When
// QVR_DEBUGPROCS (program names between commas) has a name that begins with the program's, upper or
// lower case, the program waits until a debugger clears the flag and tells so every 10 seconds at
// level 0. `path` is the path that the program was started by; `sleep_seconds` waits.
void debug_wait_arm(bool armed);
bool debug_wait_armed();
void debug_wait_for_debugger(std::string_view path, function_view<void(unsigned)> sleep_seconds);

}  // namespace qvr
