#include <arpa/inet.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "host_parts.h"
#include "immortal.h"
#include "ks_errors.h"
#include "ks_list.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr std::uint8_t mapped_prefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

const in6_addr &ipv6_of(const sockaddr *address) {
  return reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr;
}

// The addresses that were found to be local, by their text.
KSList &local_addresses() {
  static immortal<ks_list_ptr> list([] {
    KSList *made = ks_list_create({ks_free, nullptr,
                                   [](const void *a, const void *b) {
                                     return std::strcmp(static_cast<const char *>(a),
                                                        static_cast<const char *>(b));
                                   },
                                   nullptr},
                                  KS_LIST_OWNS);
    if (made == nullptr) std::raise(SIGTERM);
    return made;
  }());
  return **list;
}

}  // namespace

socklen_t host_address_length(const sockaddr *address) {
  if (address == nullptr) return 0;
  return address->sa_family == AF_INET    ? socklen_t{sizeof(sockaddr_in)}
         : address->sa_family == AF_INET6 ? socklen_t{sizeof(sockaddr_in6)}
                                          : 0;
}

host_address_t host_address_of(const sockaddr *address) {
  host_address_t out;
  if (host_address_length(address) == 0) return out;
  if (address->sa_family == AF_INET) {
    out.family = AF_INET;
    std::memcpy(out.bytes, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, 4);
    return out;
  }
  const in6_addr &ipv6 = ipv6_of(address);
  if (std::memcmp(&ipv6, mapped_prefix, sizeof mapped_prefix) == 0) {
    out.family = AF_INET;
    std::memcpy(out.bytes, ipv6.s6_addr + 12, 4);
  } else {
    out.family = AF_INET6;
    std::memcpy(out.bytes, &ipv6, 16);
  }
  return out;
}

bool host_address_is_loopback(const host_address_t &address) {
  if (address.family == AF_INET) return address.bytes[0] == 127;
  return address.family == AF_INET6 && std::memcmp(address.bytes, &in6addr_loopback, 16) == 0;
}

bool host_address_is_link_local(const sockaddr *address) {
  if (address == nullptr || address->sa_family != AF_INET6) return false;
  const in6_addr &ipv6 = ipv6_of(address);
  return ipv6.s6_addr[0] == 0xfe && (ipv6.s6_addr[1] & 0xc0) == 0x80;
}

const char *ks_inet_ntop(const void *address, char *text, int family) {
  if (inet_ntop(family, address, text, KS_ADDRESS_TEXT) == nullptr) return nullptr;
  constexpr char mapped[] = "::ffff:";
  constexpr std::size_t cut = sizeof mapped - 1;
  if (std::strncmp(text, mapped, cut) == 0 && std::strchr(text, '.') != nullptr) {
    std::memmove(text, text + cut, std::strlen(text + cut) + 1);
  }
  return text;
}

std::string ks_address_text(const sockaddr *address) {
  if (host_address_length(address) == 0) return {};
  const void *bytes =
      address->sa_family == AF_INET
          ? static_cast<const void *>(&reinterpret_cast<const sockaddr_in *>(address)->sin_addr)
          : &ipv6_of(address);
  char text[KS_ADDRESS_TEXT];
  return ks_inet_ntop(bytes, text, address->sa_family);
}

bool ks_parse_address(const char *text, sockaddr_storage &address, socklen_t &length) {
  address = {};
  if (text == nullptr) return false;
  auto *ipv4 = reinterpret_cast<sockaddr_in *>(&address);
  if (inet_pton(AF_INET, text, &ipv4->sin_addr) == 1) {
    ipv4->sin_family = AF_INET;
    length = sizeof(sockaddr_in);
    return true;
  }
  auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(&address);
  if (inet_pton(AF_INET6, text, &ipv6->sin6_addr) == 1) {
    ipv6->sin6_family = AF_INET6;
    length = sizeof(sockaddr_in6);
    return true;
  }
  return false;
}

bool ks_is_loopback(const sockaddr *address) {
  return host_address_is_loopback(host_address_of(address));
}

bool ks_is_local_address(const sockaddr *address) {
  host_address_t wanted = host_address_of(address);
  if (wanted.family == 0) return false;
  if (host_address_is_loopback(wanted)) return true;
  const std::vector<ks_interface_t> &all = ks_local_interfaces();
  return std::any_of(all.begin(), all.end(), [&](const ks_interface_t &one) {
    return host_address_of(reinterpret_cast<const sockaddr *>(&one.address)) == wanted;
  });
}

bool ks_address_is_local_cached(const sockaddr *address) {
  std::string text = ks_address_text(address);
  if (text.empty()) return false;
  void *found;
  if (ks_list_find(&local_addresses(), text.c_str(), &found) == KS_OK) return true;
  if (!ks_is_local_address(address)) return false;
  // The value is its own key. A second thread may have stored it: a text too many does no harm.
  char *kept = ks_strdup(text.c_str());
  if (ks_list_append(&local_addresses(), kept, kept) != KS_OK) ks_free(kept);
  return true;
}

}  // namespace qvr
