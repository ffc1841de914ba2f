// The cached reverse look-up.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "debug_words.h"
#include "dns_cache.h"
#include "host_parts.h"
#include "ks_errors.h"

namespace qvr {

namespace {

struct buffers_t {
  char *host;
  std::size_t host_size;
  char *service;
  std::size_t service_size;
};

int fill(const buffers_t &out, const reverse_answer_t &answer) {
  bool fits = host_fill(out.host, out.host_size, answer.host) &&
              host_fill(out.service, out.service_size, answer.service);
  return fits ? 0 : EAI_OVERFLOW;
}

// The text of a link-local address, which belongs to a link and so to no name service.
int name_link_local(const sockaddr *address, const buffers_t &out, int flags) {
  if ((flags & NI_NAMEREQD) != 0) return EAI_NONAME;
  const auto *ipv6 = reinterpret_cast<const sockaddr_in6 *>(address);
  const std::uint8_t *bytes = ipv6->sin6_addr.s6_addr;
  auto group = [bytes](int i) {
    return static_cast<unsigned>(bytes[i * 2] << 8 | bytes[i * 2 + 1]);
  };
  char text[64];
  std::snprintf(text, sizeof text, "fe80::%x:%x:%x:%x", group(4), group(5), group(6), group(7));
  return fill(out, {text, std::to_string(ntohs(ipv6->sin6_port))});
}

// A mapped address is looked up as the IPv4 address that it stands for.
bool as_ipv4(const sockaddr *address, sockaddr_in &ipv4) {
  if (address->sa_family != AF_INET6) return false;
  host_address_t plain = host_address_of(address);
  if (plain.family != AF_INET) return false;
  ipv4 = {};
  ipv4.sin_family = AF_INET;
  ipv4.sin_port = reinterpret_cast<const sockaddr_in6 *>(address)->sin6_port;
  std::memcpy(&ipv4.sin_addr, plain.bytes, 4);
  return true;
}

int ask(const sockaddr *address, socklen_t length, int flags, const buffers_t &out,
        reverse_answer_t &answer) {
  sockaddr_in ipv4;
  if (as_ipv4(address, ipv4)) {
    address = reinterpret_cast<const sockaddr *>(&ipv4);
    length = sizeof ipv4;
  }
  // Both texts are asked for whatever the caller wants, so that the cache has them for the next.
  char host[NI_MAXHOST] = {}, service[NI_MAXSERV] = {};
  int rc = host_call_reverse(address, length, host, out.host_size != 0 ? sizeof host : 0, service,
                             out.service_size != 0 ? sizeof service : 0, flags);
  answer = {host, service};
  return rc;
}

int look_up(const sockaddr *address, socklen_t length, const buffers_t &out, int flags) {
  ks_rdns_state state = ks_get_rdns_state();
  if (state == KS_RDNS_BANNED && (flags & NI_NUMERICHOST) == 0) return EAI_FAIL;
  if (host_address_is_link_local(address)) return name_link_local(address, out, flags);
  reverse_key_t key = reverse_key(address, length, flags);
  // What a question does not ask for is no part of the answer.
  bool cached = state == KS_RDNS_CACHED && out.host_size != 0;
  if (cached) {
    if (auto answer = dns_cache_reverse(key)) {
      KS_DEBUG(5, "ks_getnameinfo(): Found the entry in getnameinfo_cache ...\n");
      if (answer->host.empty() && answer->service.empty()) return EAI_NONAME;
      if (out.service_size == 0 || !answer->service.empty()) return fill(out, *answer);
    } else {
      KS_DEBUG(5, "ks_getnameinfo(): Entry in getnameinfo_cache  not found...\n");
    }
  }
  reverse_answer_t answer;
  int rc = ask(address, length, flags, out, answer);
  if (cached && (rc == 0 || rc == EAI_NONAME)) {
    dns_cache_put_reverse(key, rc == 0 ? &answer : nullptr);
    KS_DEBUG(5, "ks_getnameinfo(): Successfully added entry into getnameinfo_cache ...\n");
  }
  return rc == 0 ? fill(out, answer) : rc;
}

}  // namespace

int ks_inet_getnameinfo(const sockaddr *address, socklen_t length, char *host,
                        std::size_t host_size, char *service, std::size_t service_size, int flags) {
  if (host == nullptr) host_size = 0;
  if (service == nullptr) service_size = 0;
  socklen_t least = host_address_length(address);
  if (least == 0 || length < least) {
    KS_DEBUG(7, "ks_inet_getnameinfo(): unexpected AF_xxx\n");
    ks_set_error(EAI_FAMILY, KS_ERROR_RESOLVER);
    return EAI_FAMILY;
  }
  int rc = look_up(address, least, {host, host_size, service, service_size}, flags);
  if (rc != 0) ks_set_error(rc, KS_ERROR_RESOLVER);
  return rc;
}

}  // namespace qvr
