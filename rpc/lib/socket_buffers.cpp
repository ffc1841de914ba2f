#include "socket_buffers.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>

#include "debug_words.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr int wanted_size = 262144;

// What a fresh TCP socket lacks; 0 when the system gives enough.
int fresh_default(int option) {
  int size = 0;
  int fd = ks_socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) fd = ks_socket(AF_INET6, SOCK_STREAM, 0);
  if (fd < 0) return 0;
  socklen_t length = sizeof size;
  bool known = ks_getsockopt(fd, SOL_SOCKET, option, &size, &length) == 0;
  ks_close(fd);
  return known && size <= wanted_size ? wanted_size : 0;
}

bool apply(int socket, int option, int size, int otherwise, const char *what) {
  if (size == 0) size = otherwise;
  if (size == 0) return true;
  KS_DEBUG(9, "Setting RPC socket %s buffer size to %d\n", what, size);
  if (ks_setsockopt(socket, SOL_SOCKET, option, &size, sizeof size) == 0) return true;
  int saved = errno;
  KS_DEBUG(1, "Failed to set socket %s buffer size to %d: %s\n", what, size, ks_strerror(saved));
  errno = saved;
  return false;
}

}  // namespace

socket_buffers_t socket_buffer_defaults(
    const std::function<const char *(const char *)> &getenv_of) {
  auto get = [&](const char *name) { return getenv_of ? getenv_of(name) : ks_getenv(name); };
  socket_buffers_t sizes;
  const char *unset = get("QVR_SOCK_BUF_UNSET");
  if (unset != nullptr && (*unset == 'Y' || *unset == 'y')) {
    KS_DEBUG(2, "QVR_SOCK_BUF_UNSET set to %s", unset);
  } else {
    auto read = [&](const char *name, std::initializer_list<int *> to) {
      const char *text = get(name);
      if (text == nullptr) return;
      int value = std::atoi(text);
      if (value <= 0) {
        KS_DEBUG(1, "Ignoring invalid %s value: %d\n", name, value);
        return;
      }
      for (int *size : to) *size = value;
    };
    read("QVR_SOCK_BUF_SIZE", {&sizes.send, &sizes.receive});
    read("QVR_SOCK_SENDBUF_SIZE", {&sizes.send});
    read("QVR_SOCK_RECVBUF_SIZE", {&sizes.receive});
    if (sizes.send == 0) sizes.send = fresh_default(SO_SNDBUF);
    if (sizes.receive == 0) sizes.receive = fresh_default(SO_RCVBUF);
  }
  KS_DEBUG(2, "Setting default RPC socket send buffer size to %d\n", sizes.send);
  KS_DEBUG(2, "Setting default RPC socket receive buffer size to %d\n", sizes.receive);
  return sizes;
}

bool socket_buffers_apply(int socket, int send_size, int receive_size) {
  static const socket_buffers_t defaults = socket_buffer_defaults({});
  if (send_size < 0 || receive_size < 0) {
    errno = EINVAL;
    return false;
  }
  return apply(socket, SO_SNDBUF, send_size, defaults.send, "send") &&
         apply(socket, SO_RCVBUF, receive_size, defaults.receive, "recv");
}

}  // namespace qvr
