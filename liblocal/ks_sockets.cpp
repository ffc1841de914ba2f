#include "ks_sockets.h"

#include <unistd.h>

#include <cerrno>

#include "hosts.h"
#include "ks_errors.h"

namespace qvr {

namespace {

template <class Result>
Result noted(Result result) {
  if (result < 0) ks_set_error(errno, KS_ERROR_ERRNO);
  return result;
}

}  // namespace

int ks_socket(int family, int type, int protocol) {
  ks_local_interfaces();
  return noted(socket(family, type, protocol));
}

int ks_connect(int socket, const sockaddr *address, socklen_t length) {
  return noted(connect(socket, address, length));
}

int ks_bind(int socket, const sockaddr *address, socklen_t length) {
  return noted(bind(socket, address, length));
}

int ks_poll(pollfd *entries, nfds_t count, int milliseconds) {
  return noted(poll(entries, count, milliseconds));
}

int ks_select(int count, fd_set *readable, fd_set *writable, fd_set *excepted, timeval *timeout) {
  return noted(select(count, readable, writable, excepted, timeout));
}

ssize_t ks_recvfrom(int socket, void *to, std::size_t size, int flags, sockaddr *address,
                    socklen_t *length) {
  return noted(recvfrom(socket, to, size, flags, address, length));
}

ssize_t ks_sendto(int socket, const void *from, std::size_t size, int flags,
                  const sockaddr *address, socklen_t length) {
  return noted(sendto(socket, from, size, flags, address, length));
}

int ks_getsockopt(int socket, int level, int option, void *value, socklen_t *length) {
  return noted(getsockopt(socket, level, option, value, length));
}

int ks_setsockopt(int socket, int level, int option, const void *value, socklen_t length) {
  return noted(setsockopt(socket, level, option, value, length));
}

int ks_close(int descriptor) {
  return noted(close(descriptor));
}

}  // namespace qvr
