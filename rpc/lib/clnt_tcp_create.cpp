// TCP handles by address.
#include <netinet/in.h>

#include <cerrno>

#include "auth_methods.h"
#include "clnt_create.h"
#include "clnt_error.h"
#include "clnt_tcp.h"
#include "debug_words.h"
#include "hosts.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"
#include "pmap_lookup.h"
#include "tcp_connect.h"

namespace qvr {

namespace {

std::uint16_t &port_of(sockaddr_storage &address) {
  return address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6 &>(address).sin6_port
                                       : reinterpret_cast<sockaddr_in &>(address).sin_port;
}

bool family_known(const sockaddr_storage &address) {
  return address.ss_family == AF_INET || address.ss_family == AF_INET6;
}

struct tcp_request {
  sockaddr_storage address;
  std::uint32_t program, version;
  int send_size, receive_size, wait_seconds;
  unsigned flags;

  std::unique_ptr<CLIENT> create(int &socket);
  bool check_given(int socket) const;
  int connect() const;
};

// A socket that the caller brings must be of the address's family.
bool tcp_request::check_given(int socket) const {
  sockaddr_storage local = {};
  socklen_t length = sizeof local;
  if (getsockname(socket, reinterpret_cast<sockaddr *>(&local), &length) == 0 &&
      local.ss_family == address.ss_family) {
    return true;
  }
  KS_DEBUG(1, "%s:%d Address family mismatch detected when creating RPC client handle\n", __FILE__,
           __LINE__);
  errno = EINVAL;
  set_create_err(RPC_SYSTEMERROR, EINVAL);
  return false;
}

int tcp_request::connect() const {
  tcp_connect_t request;
  request.address = address;
  request.send_size = send_size;
  request.receive_size = receive_size;
  request.wait_seconds = wait_seconds;
  request.quiet = (flags & CLNT_QUIET) != 0;
  return tcp_connect(request);
}

std::unique_ptr<CLIENT> system_error(int error) {
  KS_DEBUG(1, "%s:%d Encountered a system error when creating TCP client handle: %s\n", __FILE__,
           __LINE__, ks_strerror(error));
  set_create_err(RPC_SYSTEMERROR, error);
  return nullptr;
}

std::unique_ptr<CLIENT> tcp_request::create(int &socket) {
  if (!family_known(address)) return system_error(EAFNOSUPPORT);
  if (debug_on(9)) {
    const char *name = rpc_program_name(program);
    KS_DEBUG(9, "Creating TCP/%s RPC client handle prog %lu (progname %s) vers %lu\n",
             address.ss_family == AF_INET6 ? "IPv6" : "IPv4", static_cast<unsigned long>(program),
             name != nullptr ? name : "unknown", static_cast<unsigned long>(version));
  }
  if (port_of(address) == 0) {
    if ((flags & CLNT_MORE_ADDRESSES) != 0 &&
        ks_address_is_local_cached(reinterpret_cast<const sockaddr *>(&address)) &&
        pmap_cache_find(program, version, IPPROTO_TCP) != 0) {
      flags |= CLNT_QUIET;
    }
    std::uint16_t port =
        pmap_getport_qvr(address, program, version, IPPROTO_TCP, PMAP_PRODUCT, wait_seconds);
    if (port == 0) return nullptr;
    port_of(address) = htons(port);
  }
  bool own = socket < 0;
  if (!own && !check_given(socket)) return nullptr;
  int fd = own ? connect() : socket;
  if (fd < 0) return nullptr;

  if (own) {
    int on = 1;
    ks_setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  }
  auto handle = clnt_tcp::make(fd, address, program, version, send_size, receive_size);
  if (!handle) {
    int saved = errno;
    if (own) ks_close(fd);
    return system_error(saved);
  }
  handle->set_auth_mask(auth_mask_for(address));
  if (own) {
    handle->own_socket();
    handle->set_nodelay(true);
  }
  socket = fd;
  return handle;
}

}  // namespace

std::unique_ptr<CLIENT> clnt_tcp_create(const sockaddr_storage &address, std::uint32_t program,
                                        std::uint32_t version, int &socket, int send_size,
                                        int receive_size, unsigned flags) {
  tcp_request request{address, program, version, send_size, receive_size, 0, flags};
  return request.create(socket);
}

std::unique_ptr<CLIENT> clnt_tcp_create_wait(const sockaddr_storage &address, std::uint32_t program,
                                             std::uint32_t version, int &socket, int send_size,
                                             int receive_size, int seconds, unsigned flags) {
  tcp_request request{address, program, version, send_size, receive_size, seconds, flags};
  return request.create(socket);
}

}  // namespace qvr
