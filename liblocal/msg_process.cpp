#include "msg_process.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <mutex>

#include "immortal.h"
#include "progname.h"

namespace qvr {

namespace {

// `mutex` guards the name.
struct host_name_t {
  std::mutex mutex;
  std::string name = "unknown";
};

host_name_t &host_name() {
  static immortal<host_name_t> host;
  return *host;
}

}  // namespace

msg_outlets_t &msg_outlets() {
  static immortal<msg_outlets_t> outlets;
  static const bool started = [] {
    outlets->force_id = std::getenv("QVR_FORCE_MSG_ID") != nullptr;
    return true;
  }();
  (void)started;
  return *outlets;
}

std::uint32_t msg_log_mode_now() {
  msg_outlets_t &outlets = msg_outlets();
  msg_mode_source_t source = outlets.mode_source;
  return source != nullptr ? source() : outlets.log_mode.load();
}

bool msg_open_rendered_log(const char *path) {
  std::FILE *log = std::fopen(path, "ae");
  if (log == nullptr) return false;
  std::setvbuf(log, nullptr, _IONBF, 0);
  // The one opened here before stays open: another thread may be writing to it.
  msg_outlets().rendered_log = log;
  return true;
}

void msg_set_host(std::string name) {
  constexpr std::size_t longest = 255;
  if (name.size() > longest) name.resize(longest);
  host_name_t &host = host_name();
  std::lock_guard lock(host.mutex);
  host.name = std::move(name);
}

std::string msg_host() {
  host_name_t &host = host_name();
  std::lock_guard lock(host.mutex);
  return host.name;
}

std::string msg_program() {
  std::array<char, 256> name;
  return ks_get_progname(name.data(), name.size());
}

std::uint32_t msg_thread_id() {
  return static_cast<std::uint32_t>(syscall(SYS_gettid));
}

}  // namespace qvr
