// Which port does a program listen on: the question to the port mappers of a host.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "pmap_cache.h"
#include "rpc_names.h"

namespace qvr {

enum pmap_flag : unsigned {
  PMAP_SYSTEM = 1,   // ask the operating system's port mapper
  PMAP_PRODUCT = 2,  // ask the port mapper of qvrexecd
};

// The port (host order) of exactly this program and version at the address; 0 with the thread's
// create error set. `protocol` is an IPPROTO number. The address's port is ignored. With
// `wait_seconds` above 0 the connection to the port mapper takes at most that long. Any thread.
std::uint16_t pmap_getport_qvr(const sockaddr_storage &address, std::uint32_t program,
                               std::uint32_t version, int protocol, unsigned flags,
                               int wait_seconds = 0);
// What is asked when the operating system's port mapper knows no port; null takes it away.
using pmap_system_hook = std::uint16_t (*)(std::uint32_t program, std::uint32_t version,
                                           int protocol);
void pmap_set_system_hook(pmap_system_hook hook);

// What the failure messages call the service behind a port of a host; `text` stays as it is when
// the port mapper lists the port under no known name.
void pmap_service_name(std::string_view host, std::uint16_t port, std::string &text);
}  // namespace qvr
