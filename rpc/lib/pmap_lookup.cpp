#include "pmap_lookup.h"

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <memory>

#include "clnt_create.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "pmap_cache.h"
#include "pmap_ports.h"
#include "pmap_protocol.h"

namespace qvr {

namespace {

constexpr int PMAP_BUFFER = 400;
constexpr std::chrono::seconds UDP_RETRY{25};

std::atomic<pmap_system_hook> system_hook{nullptr};

void set_port(sockaddr_storage &address, std::uint16_t port) {
  if (address.ss_family == AF_INET6) {
    reinterpret_cast<sockaddr_in6 &>(address).sin6_port = htons(port);
  } else {
    reinterpret_cast<sockaddr_in &>(address).sin_port = htons(port);
  }
}

std::unique_ptr<CLIENT> open_mapper(const sockaddr_storage &address, int protocol,
                                    int wait_seconds) {
  int socket = -1;
  if (protocol == IPPROTO_UDP) {
    return clnt_udp_create(address, PMAP_PROGRAM, PMAP_VERSION, UDP_RETRY, socket, PMAP_BUFFER,
                           PMAP_BUFFER, CLNT_QUIET);
  }
  if (wait_seconds > 0) {
    return clnt_tcp_create_wait(address, PMAP_PROGRAM, PMAP_VERSION, socket, PMAP_BUFFER,
                                PMAP_BUFFER, wait_seconds, CLNT_QUIET);
  }
  return clnt_tcp_create(address, PMAP_PROGRAM, PMAP_VERSION, socket, PMAP_BUFFER, PMAP_BUFFER,
                         CLNT_QUIET);
}

void tell_unregistered(const sockaddr_storage &address, const pmap_entry_t &wanted) {
  if (!debug_on(1)) return;
  const char *name = rpc_program_name(static_cast<std::uint32_t>(wanted.program));
  KS_DEBUG(1, "RPC service %lu (vers %lu, progname %s) not registered on %s\n",
           static_cast<unsigned long>(wanted.program), static_cast<unsigned long>(wanted.version),
           name != nullptr ? name : "unknown",
           ks_address_text(reinterpret_cast<const sockaddr *>(&address)).c_str());
}

// Asks the port mapper at that port of the address; 0 with the create error set.
std::uint16_t ask_mapper(sockaddr_storage address, std::uint16_t mapper_port,
                         const pmap_entry_t &wanted, int wait_seconds) {
  set_port(address, mapper_port);
  auto client = open_mapper(address, static_cast<int>(wanted.protocol), wait_seconds);
  if (client == nullptr) return 0;
  std::uint16_t port = 0;
  if (pmap_call_getport(*client, wanted, port) != RPC_SUCCESS) {
    rpc_create_err_t &error = clnt_create_err();
    error.error = client->last_error();
    error.status = RPC_PMAPFAILURE;
    port = 0;
  } else if (port == 0) {
    tell_unregistered(address, wanted);
    set_create_err(RPC_PROGNOTREGISTERED);
  }
  clnt_auth_destroy(client);
  return port;
}

std::uint16_t ask_system(const sockaddr_storage &address, std::uint16_t mapper_port,
                         const pmap_entry_t &wanted, int wait_seconds) {
  std::uint16_t port = ask_mapper(address, mapper_port, wanted, wait_seconds);
  pmap_system_hook hook = system_hook;
  if (port != 0 || hook == nullptr) return port;
  return hook(static_cast<std::uint32_t>(wanted.program),
              static_cast<std::uint32_t>(wanted.version), static_cast<int>(wanted.protocol));
}

}  // namespace

void pmap_set_system_hook(pmap_system_hook hook) {
  system_hook = hook;
}

std::uint16_t pmap_getport_qvr(const sockaddr_storage &address, std::uint32_t program,
                               std::uint32_t version, int protocol, unsigned flags,
                               int wait_seconds) {
  bool local = ks_address_is_local_cached(reinterpret_cast<const sockaddr *>(&address));
  std::uint16_t port = pmap_cache_find(program, version, protocol);
  if (port != 0 && local) return port;
  pmap_entry_t wanted = {program, version, static_cast<std::uint64_t>(protocol), 0};
  std::uint16_t system_port, product_port;
  pmap_ports(&system_port, &product_port);
  if ((flags & PMAP_PRODUCT) != 0) {
    port = ask_mapper(address, product_port, wanted, wait_seconds);
    if (port != 0 && local) pmap_cache_add({program, version, wanted.protocol, port});
  }
  if (port == 0 && (flags & PMAP_SYSTEM) != 0 && system_port < PMAP_NO_PORT) {
    port = ask_system(address, system_port, wanted, wait_seconds);
  }
  return port;
}

}  // namespace qvr
