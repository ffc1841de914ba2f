#include "debug_config.h"

#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "debug_words.h"
#include "install_paths.h"
#include "msg.h"
#include "msg_process.h"

namespace qvr {

namespace {

// Cleared from outside, by a debugger.
volatile int debugger_wait = 0;

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool named_in(std::string_view list, std::string_view program) {
  while (!list.empty() && !program.empty()) {
    std::size_t end = std::min(list.find(','), list.size());
    std::string_view name = trimmed(list.substr(0, end));
    if (same_name(name.substr(0, program.size()), program)) return true;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

}  // namespace

void debug_config_read() {
  std::ifstream file(install_path(INSTALL_DEBUG, "qvrdebugconfig"));
  std::string line, program = msg_program();
  while (std::getline(file, line)) {
    std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    if (!same_name(trimmed(std::string_view(line).substr(0, equals)), program)) continue;
    debug_set_level(std::atoi(line.c_str() + equals + 1));
    msg_print(190259, 50000, MSG_STDERR,
              "******** Setting debug level from qvrdebugconfig file in qvr directory "
              "**************\n");
  }
}

void debug_wait_arm(bool armed) {
  debugger_wait = armed ? 1 : 0;
}

bool debug_wait_armed() {
  return debugger_wait != 0;
}

void debug_wait_for_debugger(std::string_view path, function_view<void(unsigned)> sleep_seconds) {
  const char *list = std::getenv("QVR_DEBUGPROCS");
  if (list == nullptr) return;
  path.remove_prefix(path.rfind('/') == std::string_view::npos ? 0 : path.rfind('/') + 1);
  std::string program(path.substr(0, path.rfind('.')));
  if (!named_in(list, program)) return;
  constexpr unsigned interval = 10;
  while (debugger_wait != 0) {
    KS_DEBUG(0, "%s (%d) waiting to be debugged\n", program.c_str(), static_cast<int>(getpid()));
    sleep_seconds(interval);
  }
}

}  // namespace qvr
