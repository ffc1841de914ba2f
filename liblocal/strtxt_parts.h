// What the makers of structured texts share.
#pragma once

#include "errobj.h"

namespace qvr {

// An owned copy of an argument of message `id`. An error object becomes its encoded message; a null
// value becomes "null", which the standard error stream is told of.
msg_arg_t strtxt_copy_arg(const msg_pair_t &pair, std::int32_t id);

// Fills a structured text. It gets as many arguments as the format has conversions.
void strtxt_fill(strtxt_t &message, std::int32_t id, const char *format, msg_pairs args);

// Fills `error` but for its code and message: time, process, thread, host, program.
void errobj_stamp(errobj_t &error);

}  // namespace qvr
