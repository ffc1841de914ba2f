// Where the host layer meets the world: the system's resolver and host data, and the cluster.
// Programs leave the defaults; tests bring their own.
#pragma once

#include <netdb.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "hosts.h"

namespace qvr {

// What the host layer asks of the system. Called without any lock of the layer held, by any thread.
class ks_resolver_t {
 public:
  virtual ~ks_resolver_t() = default;
  // As getaddrinfo(3); a list that it makes goes back to free_forward.
  virtual int forward(const char *host, const char *service, const addrinfo *hints,
                      addrinfo **result) = 0;
  virtual void free_forward(addrinfo *result) = 0;
  // As getnameinfo(3).
  virtual int reverse(const sockaddr *address, socklen_t length, char *host, socklen_t host_size,
                      char *service, socklen_t service_size, int flags) = 0;
  // gethostname(2): false when it fails.
  virtual bool host_name(std::string &name) = 0;
  // The addresses of the interfaces.
  virtual std::vector<ks_interface_t> interfaces() = 0;
  virtual bool makes_ipv6_sockets() = 0;
};

ks_resolver_t &ks_system_resolver();
// Puts `resolver` in the system resolver's place; null brings that back. The caches, the local
// name, the interfaces and the fault table are forgotten. No other thread may use the layer
// meanwhile.
void ks_set_resolver(ks_resolver_t *resolver);

// Whether `name` is a virtual host that is active on this machine: the cluster layer's test.
// Outside a cluster, and by default, nothing is.
void ks_set_virtual_host_test(bool (*test)(const char *name));

}  // namespace qvr
