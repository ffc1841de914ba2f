// The system calls of the network under the house's names. Results are those of the calls; a
// failure is also the thread's last failure. Any thread.
#pragma once

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>

namespace qvr {

// The first call in the process takes the list of local interfaces.
int ks_socket(int family, int type, int protocol);
int ks_connect(int socket, const sockaddr *address, socklen_t length);
int ks_bind(int socket, const sockaddr *address, socklen_t length);
int ks_poll(pollfd *entries, nfds_t count, int milliseconds);
int ks_select(int count, fd_set *readable, fd_set *writable, fd_set *excepted, timeval *timeout);
ssize_t ks_recvfrom(int socket, void *to, std::size_t size, int flags, sockaddr *address,
                    socklen_t *length);
ssize_t ks_sendto(int socket, const void *from, std::size_t size, int flags,
                  const sockaddr *address, socklen_t length);
int ks_getsockopt(int socket, int level, int option, void *value, socklen_t *length);
int ks_setsockopt(int socket, int level, int option, const void *value, socklen_t length);
int ks_close(int descriptor);

}  // namespace qvr
