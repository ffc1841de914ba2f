#include "rpc_stats.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "debug_markers.h"
#include "debug_words.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

bool is_directory(const std::string &path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The numeric address of one end, empty when the socket has none of that kind.
template <class NameOf>
std::string address_text(int socket, NameOf name_of) {
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  auto *plain = reinterpret_cast<sockaddr *>(&address);
  if (name_of(socket, plain, &size) != 0) return {};
  if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return {};
  char text[NI_MAXHOST];
  if (getnameinfo(plain, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) return {};
  return text;
}

std::string stats_file_name(int socket, std::string_view name) {
  std::string local = address_text(socket, getsockname);
  std::string result(name);
  result += ",pid_" + std::to_string(getpid());
  if (local.empty()) return result + ",fd" + std::to_string(socket);
  std::string peer = address_text(socket, getpeername);
  return result + ',' + local + '-' + (peer.empty() ? "?" : peer);
}

// "no" and the name; a name of one side of a family is also covered by the family's marker.
bool excluded(std::string_view name) {
  if (debug_marker("no" + std::string(name))) return true;
  if (!name.ends_with("clnt") && !name.ends_with("serv")) return false;
  name.remove_suffix(4);
  if (name.ends_with('_')) name.remove_suffix(1);
  return debug_marker("no" + std::string(name));
}

// Never through a link, and nothing but a regular file loses its content. -1 with errno, or -2 for
// a file of another kind.
int open_stats_file(const std::string &path) {
  struct stat info;
  if (lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) return -2;
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
  if (fd < 0) return errno == ELOOP ? -2 : -1;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(fd);
    return -2;
  }
  if (ftruncate(fd, 0) != 0) {
    int saved = errno;
    close(fd);
    errno = saved;
    return -1;
  }
  return fd;
}

void append_line(std::string &text, const char *head, const rpc_stats_counters &counters) {
  char line[160];
  int size;
  if (rpc_dirs().cntonly) {
    size = std::snprintf(line, sizeof line, "%s\tcnt %10lu", head,
                         static_cast<unsigned long>(counters.count));
  } else {
    size = std::snprintf(line, sizeof line, "%s\tcrc %10lu\tsum %10lu\tcnt %10lu", head,
                         static_cast<unsigned long>(counters.crc),
                         static_cast<unsigned long>(counters.sum),
                         static_cast<unsigned long>(counters.count));
  }
  text.append(line, static_cast<std::size_t>(size));
  if (counters.nblock != 0) {
    size = std::snprintf(line, sizeof line, "\tnblock %3u\n", counters.nblock);
    text.append(line, static_cast<std::size_t>(size));
  } else {
    text += '\n';
  }
}

}  // namespace

std::uint32_t rpc_stats_fragmax() {
  if (auto text = debug_marker_text("fragmax")) {
    unsigned long value = std::strtoul(text->c_str(), nullptr, 10);
    if (value != 0) {
      return value > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(value);
    }
  }
  return XDRREC_FRAGMAX_DEFAULT;
}

void rpc_stats_note(rpc_stats &stats, rpc_stats_counters &counters, const void *bytes,
                    std::size_t size) {
  counters.count += size;
  if (stats.count_only_) return;
  auto *at = static_cast<const std::uint8_t *>(bytes);
  std::uint32_t crc = counters.crc, sum = counters.sum;
  for (std::size_t i = 0; i < size; i++) {
    crc = std::rotr(crc, 1) + at[i];
    sum += at[i];
  }
  counters.crc = crc;
  counters.sum = sum;
}

void rpc_stats_dump(rpc_stats &stats) {
  if (stats.file_ < 0) return;
  std::string text;
  append_line(text, "WROTE:", stats.wrote);
  append_line(text, " READ:", stats.read);
  if (lseek(stats.file_, 0, SEEK_SET) != 0 ||
      write(stats.file_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    stats.close_file();
  }
}

void rpc_stats::close_file() {
  if (file_ >= 0) close(file_);
  file_ = -1;
}

void rpc_stats_start(rpc_stats &stats, xdr_record_stream &stream, int socket, std::string_view name,
                     xdrrec_fragmax_callback callback, void *argument) {
  stats.close_file();
  stats.path_.clear();
  stats.count_only_ = true;
  stats.blocking_only = false;
  stream.set_fragmax(rpc_stats_fragmax(), callback, argument);
  const rpc_dirs_t &dirs = rpc_dirs();
  if (!is_directory(dirs.checksums)) return;
  stats.blocking_only = debug_marker("blockingonly");
  if (excluded(name)) return;
  stats.count_only_ = dirs.cntonly;
  std::string path = dirs.checksums + '/' + stats_file_name(socket, name);
  int fd = open_stats_file(path);
  if (fd == -2) {
    KS_DEBUG(1, "cannot use non regular stats file %s\n", path.c_str());
    return;
  }
  if (fd < 0) {
    int code = errno + 12000;
    msg_print(61332, code, MSG_STDERR, "Failed to open RPC statistics file %s: %s\n",
              {{MSG_ARG_PATH, path}, {MSG_ARG_ERRTEXT, ks_strerror(errno)}});
    return;
  }
  stats.file_ = fd;
  stats.path_ = std::move(path);
  rpc_stats_dump(stats);
}

void rpc_stats_stop(rpc_stats &stats, xdr_record_stream *stream, bool remove) {
  bool had_file = !stats.path_.empty();
  // What stays behind shows the whole of the connection.
  rpc_stats_dump(stats);
  stats.close_file();
  if (remove && had_file && !debug_marker("noremove")) unlink(stats.path_.c_str());
  stats.path_.clear();
  stats.count_only_ = true;
  stats.blocking_only = false;
  if (stream != nullptr) stream->set_fragmax(0, nullptr, nullptr);
}

}  // namespace qvr
