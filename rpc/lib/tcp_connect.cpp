#include "tcp_connect.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "pmap_lookup.h"
#include "port_bind.h"
#include "socket_buffers.h"
#include "tcp_transport.h"

namespace qvr {

namespace {

constexpr int already_wait = 10000;  // milliseconds
constexpr int pause_from_try = 100;
constexpr std::uint32_t pause_time = 1;  // milliseconds
constexpr int blocking_tries = 5;

const sockaddr *plain(const sockaddr_storage &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

socklen_t size_of(const sockaddr_storage &address) {
  return address.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

int port_of(const sockaddr_storage &address) {
  return ntohs(address.ss_family == AF_INET6
                   ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                   : reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

// What a failed connect means for the attempt. Each works on errno's value and gives 0 for
// connected, -1 for a new socket, or the errno value that the attempt ends with.
constexpr int start_again = -1;

// What became of a connect that went on by itself: 0 or an errno value. -1 when that is not known.
int socket_error(int socket) {
  int error = 0;
  socklen_t length = sizeof error;
  return ks_getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : -1;
}

int poll_writable(int socket, int milliseconds) {
  pollfd entry = {socket, POLLOUT | POLLWRNORM, 0};
  for (;;) {
    int ready = ks_poll(&entry, 1, milliseconds);
    if (ready >= 0 || errno != EINTR) return ready;
  }
}

// A connect that goes on by itself: waits for its end. 0 or the errno value of the failure.
int finish_connect(int socket, const tcp_connect_t &request) {
  int level = request.quiet ? 1 : 0;
  int ready = poll_writable(socket, request.wait_seconds * 1000);
  if (ready < 0) {
    int saved = errno;
    if (!request.quiet) {
      msg_print(200171, saved + 12000, MSG_STDERR, "Error connecting - %s\n",
                {{MSG_ARG_ERRTEXT, ks_strerror(saved)}});
    }
    return saved;
  }
  if (ready == 0) {
    KS_DEBUG(level, "Timeout in select() - Cancelling!\n");
    return ETIMEDOUT;
  }
  int error = socket_error(socket);
  if (error < 0) {
    int saved = errno;
    KS_DEBUG(level, "Error in getsockopt() - %s\n", ks_strerror(saved));
    return saved;
  }
  if (error != 0) KS_DEBUG(level, "Error in delayed connection() - %s\n", ks_strerror(error));
  return error;
}

bool make_blocking(int socket) {
  for (int tries = 0; tries < blocking_tries; tries++) {
    int flags = fcntl(socket, F_GETFL);
    if (flags >= 0 && fcntl(socket, F_SETFL, flags & ~O_NONBLOCK) == 0) return true;
  }
  return false;
}

bool make_non_blocking(int socket) {
  int flags = fcntl(socket, F_GETFL);
  return flags >= 0 && fcntl(socket, F_SETFL, flags | O_NONBLOCK) == 0;
}

// One address on one socket. 0, `start_again`, or an errno value.
int connect_once(int socket, const sockaddr_storage &address, const tcp_connect_t &request) {
  bool waiting = request.wait_seconds > 0;
  if (waiting && !make_non_blocking(socket)) {
    KS_DEBUG(5, "Unable to set non-blocking mode.\n");
    waiting = false;
  }
  int result = 0;
  while (request.connect(socket, plain(address), size_of(address)) != 0) {
    int error = errno;
    if (error == EINTR) continue;
    if (error == EISCONN) break;
    if (error == EADDRINUSE) return start_again;
    if (error == EALREADY) {
      // A socket is writable as well when its connect has failed.
      bool connected = poll_writable(socket, already_wait) > 0 && socket_error(socket) == 0;
      if (!connected) result = EALREADY;
    } else if (waiting && (error == EINPROGRESS || error == EAGAIN)) {
      result = finish_connect(socket, request);
    } else {
      result = error;
    }
    break;
  }
  if (result == ECONNREFUSED) pmap_cache_clear();
  return result;
}

// The addresses to try: a link-local one is good on any of the local links.
std::vector<sockaddr_storage> candidates(const sockaddr_storage &address) {
  if (address.ss_family != AF_INET6) return {address};
  const auto &v6 = reinterpret_cast<const sockaddr_in6 &>(address);
  if (!IN6_IS_ADDR_LINKLOCAL(&v6.sin6_addr)) return {address};
  std::vector<unsigned> scopes;
  for (const ks_interface_t &interface : ks_local_interfaces()) {
    if (interface.address.ss_family != AF_INET6 || interface.index == 0) continue;
    if (std::find(scopes.begin(), scopes.end(), interface.index) == scopes.end()) {
      scopes.push_back(interface.index);
    }
  }
  if (scopes.empty()) return {address};
  std::vector<sockaddr_storage> result(scopes.size(), address);
  for (std::size_t i = 0; i < scopes.size(); i++) {
    reinterpret_cast<sockaddr_in6 &>(result[i]).sin6_scope_id = scopes[i];
  }
  return result;
}

struct failure_t {
  int error;
  bool connect;  // it was the connect that failed: a report is due
};

// A new socket, bound and with its buffers; -1 with the failure.
int open_socket(const tcp_connect_t &request, failure_t &failure) {
  int family = request.address.ss_family;
  int socket = ks_socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) {
    failure = {errno, false};
    KS_DEBUG(1, "%s:%d Failed to create socket for TCP client handle: %s", __FILE__, __LINE__,
             ks_strerror(failure.error));
    return -1;
  }
  if (rpc_bind_from_range(socket, family) != 0) {
    failure = {errno, false};
    if (!request.quiet) {
      msg_print(173679, failure.error + 13000, MSG_STDERR,
                "Unable to bind socket to port %d from connection port range %s: %s\n",
                {{MSG_ARG_INT, "0"},
                 {MSG_ARG_PORTRANGE, rpc_connection_range_text()},
                 {MSG_ARG_ERRTEXT, ks_strerror(failure.error)}});
    }
    ks_close(socket);
    return -1;
  }
  if (debug_on(9)) {
    sockaddr_storage local = {};
    socklen_t length = sizeof local;
    getsockname(socket, reinterpret_cast<sockaddr *>(&local), &length);
    KS_DEBUG(9, "Bound TCP/%s socket descriptor %d to port %d\n",
             family == AF_INET6 ? "IPv6" : "IPv4", socket, port_of(local));
  }
  if (!socket_buffers_apply(socket, request.send_size, request.receive_size)) {
    failure = {errno, false};
    ks_close(socket);
    return -1;
  }
  return socket;
}

void report(const tcp_connect_t &request, int error) {
  msg_print(173680, error + 23000, MSG_STDERR, "RPC client handle: %s.\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
  std::string address = ks_address_text(plain(request.address));
  std::string host = address;
  int port = port_of(request.address);
  char name[NI_MAXHOST];
  if (ks_inet_getnameinfo(plain(request.address), size_of(request.address), name, sizeof name,
                          nullptr, 0, NI_NAMEREQD) != 0) {
    KS_DEBUG(1, "The host address '%s' is unknown.\n", address.c_str());
    msg_print(172088, error + 23000, MSG_STDERR,
              "Unable to create the connection to host '%s' at port number %d.\n",
              {{MSG_ARG_HOST, address}, {MSG_ARG_INT, msg_arg_int(port)}});
  } else {
    host = name;
    std::string service = "client services";
    pmap_service_name(host, static_cast<std::uint16_t>(port), service);
    msg_print(172089, error + 23000, MSG_STDERR,
              "Unable to create the connection with '%s' to host '%s' with address '%s' at port "
              "number %d.\n",
              {{MSG_ARG_PROGRAM, service},
               {MSG_ARG_HOST, host},
               {MSG_ARG_ADDRESS, address},
               {MSG_ARG_INT, msg_arg_int(port)}});
  }
  if (error == ECONNREFUSED) {
    msg_print(173677, error + 25000, MSG_STDERR,
              "Check whether the client services are running on the host '%s'.\n",
              {{MSG_ARG_HOST, host}});
  } else if (error == ETIMEDOUT || error == EHOSTUNREACH) {
    msg_print(173678, error + 25000, MSG_STDERR,
              "Check whether the firewall is blocking the client ports on the host '%s'.\n",
              {{MSG_ARG_HOST, host}});
  }
}

}  // namespace

int tcp_connect(const tcp_connect_t &request) {
  std::size_t range = rpc_connection_range_count();
  std::size_t most = 2 * (range != 0 ? range : 65535);
  failure_t failure{0, true};
  std::size_t tries = 0;
  for (const sockaddr_storage &address : candidates(request.address)) {
    for (;;) {
      int socket = open_socket(request, failure);
      if (socket < 0) break;
      int result = connect_once(socket, address, request);
      if (result == 0 && request.wait_seconds <= 0) return socket;
      if (result == 0 && make_blocking(socket)) {
        set_rpc_io_mode(RPC_IO_TRUE);
        return socket;
      }
      failure = {result == start_again ? EADDRINUSE : result != 0 ? result : errno, result != 0};
      ks_close(socket);
      if (result != start_again || ++tries >= most) break;
      if (tries >= pause_from_try) ks_sleep_ms(pause_time);
    }
    if (!failure.connect) break;
  }
  if (!failure.connect) {
    KS_DEBUG(1, "%s:%d Encountered a system error when creating TCP client handle: %s\n", __FILE__,
             __LINE__, ks_strerror(failure.error));
  } else if (!request.quiet) {
    report(request, failure.error);
  }
  set_create_err(RPC_SYSTEMERROR, failure.error);
  return -1;
}

}  // namespace qvr
