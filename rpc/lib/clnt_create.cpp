// Client handles by host name.
#include "clnt_create.h"

#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <string>

#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "pmap_lookup.h"
#include "rpc_state.h"

namespace qvr {

namespace {

struct protocol_row {
  const char *word;
  int socket_type;
  std::chrono::seconds timeout;
};
constexpr protocol_row protocol_rows[] = {
    {"tcp", SOCK_STREAM, std::chrono::seconds{30}},
    {"udp", SOCK_DGRAM, std::chrono::seconds{25}},
};
constexpr std::chrono::seconds udp_retry{5};
constexpr int first_wait = 2;  // seconds

struct addrinfo_release {
  void operator()(addrinfo *list) const { ks_inet_freeaddrinfo(list); }
};

struct host_request {
  const std::string &host;
  std::uint32_t program, version;
  const protocol_row &protocol;
  int send_size, receive_size;
  unsigned flags;
  bool multi_subnet;

  std::unique_ptr<CLIENT> try_address(const addrinfo &info, int wait) const;
};

std::unique_ptr<CLIENT> host_request::try_address(const addrinfo &info, int wait) const {
  sockaddr_storage address = {};
  std::copy_n(reinterpret_cast<const char *>(info.ai_addr),
              std::min<std::size_t>(info.ai_addrlen, sizeof address),
              reinterpret_cast<char *>(&address));
  if (debug_on(9)) {
    const char *name = rpc_program_name(program);
    KS_DEBUG(9,
             "Creating %s RPC client handle with host %s (%s, prog %lu (Progname %s), vers %lu)\n",
             protocol.word, host.c_str(), ks_address_text(info.ai_addr).c_str(),
             static_cast<unsigned long>(program), name != nullptr ? name : "unknown",
             static_cast<unsigned long>(version));
  }
  int socket = -1;
  unsigned how = flags;
  if (info.ai_next != nullptr) how |= CLNT_MORE_ADDRESSES;
  if (protocol.socket_type == SOCK_DGRAM) {
    return clnt_udp_create(address, program, version, udp_retry, socket,
                           send_size != 0 ? send_size : CLNT_UDP_SIZE,
                           receive_size != 0 ? receive_size : CLNT_UDP_SIZE, flags);
  }
  if (multi_subnet) {
    return clnt_tcp_create_wait(address, program, version, socket, send_size, receive_size, wait,
                                how);
  }
  return clnt_tcp_create(address, program, version, socket, send_size, receive_size, how);
}

}  // namespace

std::unique_ptr<CLIENT> clnt_create_host(std::string_view host, std::uint32_t program,
                                         std::uint32_t version, std::string_view protocol,
                                         int send_size, int receive_size, unsigned flags) {
  std::string word(protocol.empty() ? std::string_view("tcp") : protocol);
  auto row =
      std::find_if(std::begin(protocol_rows), std::end(protocol_rows),
                   [&](const protocol_row &r) { return strcasecmp(r.word, word.c_str()) == 0; });
  if (row == std::end(protocol_rows)) {
    set_create_err(RPC_UNKNOWNPROTO);
    return nullptr;
  }
  std::string name(host);
  if (name.empty() || ks_is_local_alias(name.c_str())) name = "localhost";
  addrinfo hints = {};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = row->socket_type;
  addrinfo *found = nullptr;
  if (ks_inet_getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
    set_create_err(RPC_UNKNOWNHOST);
    return nullptr;
  }
  std::unique_ptr<addrinfo, addrinfo_release> addresses(found);

  int rounds = 1;
  bool multi_subnet;
  {
    rpc_global_t &global = rpc_global();
    std::lock_guard lock(global.mutex);
    multi_subnet = global.multi_subnet;
    if (multi_subnet) rounds = std::max(1, global.tcp_retry);
  }
  if (multi_subnet) {
    KS_DEBUG(9, "Will be a non blocking call. Will retry connection for %d times.\n", rounds);
  }
  host_request request{name, program, version, *row, send_size, receive_size, flags, multi_subnet};
  int wait = first_wait;
  for (int round = 0; round < rounds; round++) {
    if (round > 0) {
      if (row->socket_type == SOCK_DGRAM) break;
      if (wait <= 3600) wait *= 2;
      KS_DEBUG(5, "Retry TCP for %d times. Next wait time %d.\n", round, wait);
    }
    for (const addrinfo *info = addresses.get(); info != nullptr; info = info->ai_next) {
      if (auto client = request.try_address(*info, wait)) {
        client->set_timeout(row->timeout);
        return client;
      }
      if (debug_on(2)) KS_DEBUG(2, "%s\n", clnt_create_error_text().c_str());
    }
  }
  return nullptr;
}

}  // namespace qvr
