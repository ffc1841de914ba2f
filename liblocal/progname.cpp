#include "progname.h"

#include <unistd.h>

#include <cstdio>

#include "immortal.h"
#include "ks_runtime_parts.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

struct names_t {
  std::string program;  // guarded by the runtime's program name mutex
  bool program_set = false;
  std::string server;  // guarded by the runtime's server name mutex
};

names_t &names() {
  static immortal<names_t> the_names;
  return *the_names;
}

}  // namespace

void ks_set_progname(std::string_view path) {
  std::size_t slash = path.rfind('/');
  if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
  std::string_view name = path.substr(0, path.rfind('.'));
  ks_name_hold hold(ks_runtime_mutexes().program_name);
  names().program = name;
  names().program_set = true;
}

char *ks_get_progname(char *buffer, std::size_t size) {
  if (buffer == nullptr || size == 0) return buffer;
  ks_name_hold hold(ks_runtime_mutexes().program_name);
  if (names().program_set) {
    ks_strlcpy(buffer, names().program.c_str(), size);
  } else {
    std::snprintf(buffer, size, "(pid %d)", static_cast<int>(getpid()));
  }
  return buffer;
}

void ks_set_server_name(std::string_view name) {
  ks_name_hold hold(ks_runtime_mutexes().server_name);
  names().server = name;
}

std::string ks_get_server_name() {
  ks_name_hold hold(ks_runtime_mutexes().server_name);
  return names().server;
}

}  // namespace qvr
