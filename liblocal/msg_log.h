// The lines of the two logs.
#pragma once

#include <cstdint>
#include <string>

#include "errobj.h"

namespace qvr {

inline constexpr std::size_t MSG_LOG_LINE_MAX = 18432;

// The raw line, which a reader renders in a language of its own: id, time, severity, class, number,
// thread, process, tag, host, program, names of class and severity; the format with its length; the
// arguments with types and lengths. No newline. At most MSG_LOG_LINE_MAX bytes: a longer line loses
// its last arguments.
std::string msg_raw_line(const errobj_t &error);

// "%d %s%s %s %s\n": id, date and time in the locale's form, thread, process and tag when
// `identity` is set, program and names of class and severity, `text`.
std::string msg_rendered_line(const errobj_t &error, const char *text, bool identity);

// The line of the further stream: the same without program and names.
std::string msg_further_line(const errobj_t &error, const char *text, bool identity);

}  // namespace qvr
