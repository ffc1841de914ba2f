// A connected socket: from the port range, with the buffers of a handle, within a time.
#pragma once

#include <sys/socket.h>

#include "ks_sockets.h"

namespace qvr {

struct tcp_connect_t {
  sockaddr_storage address = {};  // IPv4 or IPv6, with its port
  int send_size = 0;              // of the socket's buffers; 0: the default
  int receive_size = 0;
  int wait_seconds = 0;  // 0: a blocking connect
  bool quiet = false;    // no messages
  int (*connect)(int socket, const sockaddr *address, socklen_t length) = ks_connect;
};

// The socket, in blocking mode, or -1 with the thread's create error set (status 12). Any thread.
int tcp_connect(const tcp_connect_t &request);

}  // namespace qvr
