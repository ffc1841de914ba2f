#include "pmap_ports.h"

#include <netdb.h>
#include <netinet/in.h>

#include <mutex>
#include <optional>

#include "debug_words.h"
#include "hosts.h"
#include "immortal.h"

namespace qvr {

namespace {

struct ports_t {
  std::uint16_t system_port = PMAP_NO_PORT;
  std::uint16_t product_port = PMAP_PRODUCT_PORT;
};

struct state_t {
  std::mutex lock;  // guards the ports until they are there
  std::optional<ports_t> ports;
};

state_t &state() {
  static immortal<state_t> the_state;
  return *the_state;
}

// The TCP port of a service, 0 when it has none. The address is a number, so that no name service
// is asked for it.
std::uint16_t service_port(const char *service) {
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo *found = nullptr;
  if (ks_inet_getaddrinfo("127.0.0.1", service, &hints, &found) != 0) return 0;
  std::uint16_t port = ntohs(reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_port);
  ks_inet_freeaddrinfo(found);
  return port;
}

ports_t find_ports() {
  ports_t ports;
  if (std::uint16_t product = service_port("qvrrpc")) {
    ports.product_port = product;
    KS_DEBUG(4, "Found Vaultline portmapper port, setting to %d.\n", product);
    KS_DEBUG(4, "the service qvrrpc was set, ignoring the system portmapper");
    return ports;
  }
  KS_DEBUG(4, "Did not find Vaultline portmapper port, setting to %d.\n", PMAP_PRODUCT_PORT);
  if (std::uint16_t system = service_port("sunrpc")) {
    ports.system_port = system;
    KS_DEBUG(4, "Found system portmapper port, setting to %d.\n", system);
  } else {
    KS_DEBUG(1, "Did not find system portmapper port, setting to -1.\n");
  }
  return ports;
}

}  // namespace

void pmap_ports(std::uint16_t *system_port, std::uint16_t *product_port) {
  ports_t ports;
  {
    std::lock_guard hold(state().lock);
    if (!state().ports) state().ports = find_ports();
    ports = *state().ports;
  }
  if (system_port != nullptr) *system_port = ports.system_port;
  if (product_port != nullptr) *product_port = ports.product_port;
}

void pmap_ports_reset() {
  std::lock_guard hold(state().lock);
  state().ports.reset();
}

void pmap_ports_set(std::uint16_t system_port, std::uint16_t product_port) {
  std::lock_guard hold(state().lock);
  state().ports = ports_t{system_port, product_port};
}

}  // namespace qvr
