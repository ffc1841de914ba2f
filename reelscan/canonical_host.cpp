#include "canonical_host.h"

#include <netdb.h>

#include "hosts.h"

namespace qvr {

std::string canonical_host(std::string_view name) {
  addrinfo hints{};
  hints.ai_flags = AI_CANONNAME;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo *found = nullptr;
  if (ks_inet_getaddrinfo(std::string(name).c_str(), nullptr, &hints, &found) != 0) return {};
  std::string canonical;
  if (found != nullptr && found->ai_canonname != nullptr) canonical = found->ai_canonname;
  ks_inet_freeaddrinfo(found);
  return canonical;
}

}  // namespace qvr
