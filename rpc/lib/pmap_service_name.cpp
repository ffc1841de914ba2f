#include <netdb.h>
#include <netinet/in.h>

#include <cstring>
#include <memory>

#include "clnt_create.h"
#include "clnt_error.h"
#include "hosts.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "pmap_lookup.h"
#include "pmap_ports.h"
#include "pmap_protocol.h"

namespace qvr {

namespace {

constexpr int SEND_SIZE = 50;
constexpr int RECEIVE_SIZE = 500;

// A handle of the port mapper at the first address that connects.
std::unique_ptr<CLIENT> open_mapper(const std::string &host, std::uint16_t mapper_port) {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo *found = nullptr;
  int rc = ks_inet_getaddrinfo(host.c_str(), std::to_string(mapper_port).c_str(), &hints, &found);
  if (rc != 0) {
    msg_print(172081, 22000 + RPC_UNKNOWNHOST, MSG_STDERR,
              "Unable to retrieve the DNS information for host '%s': %s.\n",
              {{MSG_ARG_HOST, host}, {MSG_ARG_ERRTEXT, ks_gai_strerror(rc)}});
    return nullptr;
  }
  std::unique_ptr<CLIENT> client;
  for (const addrinfo *entry = found; entry != nullptr && client == nullptr;
       entry = entry->ai_next) {
    sockaddr_storage address = {};
    std::memcpy(&address, entry->ai_addr, entry->ai_addrlen);
    int socket = -1;
    client = clnt_tcp_create(address, PMAP_PROGRAM, PMAP_VERSION, socket, SEND_SIZE, RECEIVE_SIZE,
                             CLNT_QUIET);
    if (client == nullptr) {
      msg_print(172082, 23012, MSG_STDERR,
                "Unable to access the QVR port mapper on host '%s': %s.\n",
                {{MSG_ARG_HOST, host}, {MSG_ARG_ERRTEXT, clnt_create_error_text()}});
    }
  }
  ks_inet_freeaddrinfo(found);
  return client;
}

}  // namespace

void pmap_service_name(std::string_view host_text, std::uint16_t port, std::string &text) {
  std::uint16_t mapper_port;
  pmap_ports(nullptr, &mapper_port);
  if (port == mapper_port) {
    text = "portmapper";
    return;
  }
  if (host_text.empty()) {
    text = "client services";
    return;
  }
  std::string host(host_text);
  auto client = open_mapper(host, mapper_port);
  if (client == nullptr) return;
  std::size_t entries = 0;
  std::uint64_t program = 0;
  clnt_stat status = pmap_call_dump(*client, [&](const pmap_entry_t &entry) {
    entries++;
    if (entry.port == port) program = entry.program;
  });
  if (status != RPC_SUCCESS) {
    msg_print(172083, rpc_error_code(status, client->last_error().why), MSG_STDERR,
              "Unable to access the QVR port mapper: %s.\n",
              {{MSG_ARG_ERRTEXT, clnt_error_text(*client)}});
  } else if (entries == 0) {
    msg_print(172084, 12000, MSG_STDERR, "No remote programs are registered.\n");
    text = "client services";
  } else if (const char *name = rpc_program_name(static_cast<std::uint32_t>(program))) {
    text = name;
  }
  clnt_auth_destroy(client);
}

}  // namespace qvr
