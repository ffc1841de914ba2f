// The name of the running program and of the server that it works for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvr {

// Keeps the last component of `path`, up to its last ".", as the program's name. Any thread.
void ks_set_progname(std::string_view path);
// Copies the name into `buffer` of `size` bytes, cut to fit and NUL-terminated: "(pid %d)" when
// none was set. Returns `buffer`. Any thread.
char *ks_get_progname(char *buffer, std::size_t size);

// The server that this process works for; empty until set. Any thread.
void ks_set_server_name(std::string_view name);
std::string ks_get_server_name();

}  // namespace qvr
