#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>

#include "dns_cache.h"
#include "host_parts.h"
#include "immortal.h"

namespace qvr {

namespace {

class system_resolver_t final : public ks_resolver_t {
 public:
  int forward(const char *host, const char *service, const addrinfo *hints,
              addrinfo **result) override {
    return getaddrinfo(host, service, hints, result);
  }
  void free_forward(addrinfo *result) override { freeaddrinfo(result); }
  int reverse(const sockaddr *address, socklen_t length, char *host, socklen_t host_size,
              char *service, socklen_t service_size, int flags) override {
    return getnameinfo(address, length, host, host_size, service, service_size, flags);
  }
  bool host_name(std::string &name) override {
    char buffer[HOST_NAME_MAX + 1] = {};
    if (gethostname(buffer, sizeof buffer - 1) != 0) return false;
    name = buffer;
    return true;
  }
  std::vector<ks_interface_t> interfaces() override {
    std::vector<ks_interface_t> all;
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0) return all;
    for (const ifaddrs *at = first; at != nullptr; at = at->ifa_next) {
      if (at->ifa_addr == nullptr) continue;
      socklen_t length = host_address_length(at->ifa_addr);
      if (length == 0) continue;
      ks_interface_t one;
      one.name = at->ifa_name;
      one.index = if_nametoindex(at->ifa_name);
      std::memcpy(&one.address, at->ifa_addr, length);
      all.push_back(one);
    }
    freeifaddrs(first);
    return all;
  }
  bool makes_ipv6_sockets() override {
    int made = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (made < 0) return false;
    close(made);
    return true;
  }
};

std::atomic<ks_resolver_t *> the_resolver{nullptr};

}  // namespace

ks_resolver_t &ks_system_resolver() {
  static immortal<system_resolver_t> resolver;
  return *resolver;
}

ks_resolver_t &host_resolver() {
  ks_resolver_t *chosen = the_resolver;
  return chosen != nullptr ? *chosen : ks_system_resolver();
}

void ks_set_resolver(ks_resolver_t *resolver) {
  the_resolver = resolver;
  host_forget_tables();
  dns_cache_forget();
  host_forget_local();
  host_forget_faults();
}

}  // namespace qvr
