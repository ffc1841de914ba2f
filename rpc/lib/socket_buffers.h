// The sizes of a connection's socket buffers.
#pragma once

#include <functional>

namespace qvr {

// Defaults in bytes; 0 is the system's choice.
struct socket_buffers_t {
  int send = 0;
  int receive = 0;
};
// By the variables QVR_SOCK_BUF_UNSET, QVR_SOCK_BUF_SIZE, QVR_SOCK_SENDBUF_SIZE and
// QVR_SOCK_RECVBUF_SIZE, and by what a fresh TCP socket has. `getenv_of` null: the process's.
socket_buffers_t socket_buffer_defaults(const std::function<const char *(const char *)> &getenv_of);

// Applies sizes to a socket: 0 takes the default (worked out once for the process), one below 0
// fails. False leaves the socket open.
bool socket_buffers_apply(int socket, int send_size, int receive_size);

}  // namespace qvr
