// The cached forward look-up.
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "debug_words.h"
#include "dns_cache.h"
#include "host_parts.h"
#include "ks_errors.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr const char *this_host = "localhost";

struct question_t {
  std::string host;
  const char *service;
  const addrinfo *hints;

  int flags() const { return hints != nullptr ? hints->ai_flags : 0; }
};

forward_key_t key_of(const question_t &question) {
  forward_key_t key;
  key.host = question.host;
  key.has_service = question.service != nullptr;
  if (key.has_service) key.service = question.service;
  key.has_hints = question.hints != nullptr;
  if (key.has_hints) {
    key.flags = question.hints->ai_flags;
    key.family = question.hints->ai_family;
    key.socktype = question.hints->ai_socktype;
    key.protocol = question.hints->ai_protocol;
  }
  return key;
}

void set_port(sockaddr_storage &address, std::uint16_t port) {
  if (address.ss_family == AF_INET) {
    reinterpret_cast<sockaddr_in &>(address).sin_port = htons(port);
  } else if (address.ss_family == AF_INET6) {
    reinterpret_cast<sockaddr_in6 &>(address).sin6_port = htons(port);
  }
}

bool numeric_port(const char *service, std::uint16_t &port) {
  port = 0;
  if (service == nullptr) return true;
  unsigned long value = 0;
  if (*service == '\0') return false;
  for (; *service != '\0'; service++) {
    if (*service < '0' || *service > '9') return false;
    value = value * 10 + static_cast<unsigned long>(*service - '0');
    if (value > 65535) return false;
  }
  port = static_cast<std::uint16_t>(value);
  return true;
}

// The answer for "0.0.0.0" and "::", made by hand. False for any other question.
bool make_wildcard(const question_t &question, host_addrinfo_list &list) {
  int family = question.host == "0.0.0.0" ? AF_INET : question.host == "::" ? AF_INET6 : AF_UNSPEC;
  int wanted = question.hints != nullptr ? question.hints->ai_family : AF_UNSPEC;
  std::uint16_t port;
  if (family == AF_UNSPEC || (wanted != AF_UNSPEC && wanted != family) ||
      !numeric_port(question.service, port)) {
    return false;
  }
  sockaddr_storage wildcard = {};
  wildcard.ss_family = static_cast<sa_family_t>(family);
  set_port(wildcard, port);
  addrinfo entry = {};
  entry.ai_family = family;
  entry.ai_socktype = question.hints != nullptr ? question.hints->ai_socktype : 0;
  entry.ai_protocol = question.hints != nullptr ? question.hints->ai_protocol : 0;
  entry.ai_addr = reinterpret_cast<sockaddr *>(&wildcard);
  entry.ai_addrlen = host_address_length(entry.ai_addr);
  host_append(list, entry);
  return true;
}

// A text that is an address in any form that inet_addr(3) or inet_pton(3) reads.
bool read_numeric(const std::string &text, sockaddr_storage &address, socklen_t &length) {
  if (ks_parse_address(text.c_str(), address, length)) return true;
  in_addr_t ipv4 = inet_addr(text.c_str());
  if (ipv4 == INADDR_NONE) return false;
  auto &ipv4_address = reinterpret_cast<sockaddr_in &>(address);
  ipv4_address.sin_family = AF_INET;
  ipv4_address.sin_addr.s_addr = ipv4;
  length = sizeof(sockaddr_in);
  return true;
}

int ask(const std::string &host, const question_t &question, host_addrinfo_list &list) {
  addrinfo *found = nullptr;
  int rc = host_call_forward(host.c_str(), question.service, question.hints, &found);
  if (rc == 0) {
    for (const addrinfo *entry = found; entry != nullptr; entry = entry->ai_next) {
      host_append(list, *entry);
    }
  }
  host_free_forward(found);
  return rc;
}

// The second try of a name that is an address: by the name that the address has.
int ask_by_address(int rc, const question_t &question, host_addrinfo_list &list) {
  sockaddr_storage address;
  socklen_t length;
  if ((question.flags() & AI_NUMERICHOST) != 0 || ks_get_rdns_state() == KS_RDNS_BANNED ||
      !read_numeric(question.host, address, length)) {
    return rc;
  }
  char name[NI_MAXHOST];
  bool named = ks_inet_getnameinfo(reinterpret_cast<sockaddr *>(&address), length, name,
                                   sizeof name, nullptr, 0, NI_NAMEREQD) == 0;
  return ask(named ? name : question.host, question, list);
}

// Adapts what the system gave to what this layer promises. 0, or the failure.
int finish(const question_t &question, host_addrinfo_list &list) {
  for (host_addrinfo_t &entry : list) {
    if (question.service == nullptr) set_port(entry.place, 0);
    if (entry.ai_protocol == 0 && question.hints != nullptr) {
      entry.ai_protocol = question.hints->ai_protocol;
    }
  }
  if (question.host == this_host) {
    KS_DEBUG(4, "Attempting to resolve 'localhost'.\n");
    if (ks_ipv6_capable()) {
      KS_DEBUG(4, "This Vaultline environment is configured for IPV6.\n");
    } else {
      std::erase_if(list, [](const host_addrinfo_t &entry) {
        const auto *address = reinterpret_cast<const sockaddr *>(&entry.place);
        return address->sa_family == AF_INET6 && ks_is_loopback(address);
      });
    }
    if (list.empty()) {
      msg_print(0, 55000, MSG_STDERR,
                "Ensure that host '%s' is resolvable in the IPV6 enabled environment.\n",
                {{MSG_ARG_HOST, question.host}});
    }
  }
  if (list.empty()) return EAI_NONAME;
  if ((question.flags() & AI_CANONNAME) != 0 && list.front().canonical.empty()) {
    list.front().canonical = question.host;
  }
  return 0;
}

int look_up(const question_t &question, host_addrinfo_list &list) {
  forward_key_t key = key_of(question);
  switch (dns_cache_forward(key, list)) {
    case dns_found::answer:
      return 0;
    case dns_found::marker:
      return EAI_NONAME;
    case dns_found::no:
      break;
  }
  int rc = ask(question.host, question, list);
  if (rc != 0 && make_wildcard(question, list)) rc = 0;
  if (rc != 0) rc = ask_by_address(rc, question, list);
  if (rc == 0) rc = finish(question, list);
  if (rc == 0) {
    dns_cache_put_forward(key, &list);
  } else if (rc == EAI_NONAME) {
    dns_cache_put_forward(key, nullptr);
  }
  return rc;
}

}  // namespace

void host_append(host_addrinfo_list &list, const addrinfo &entry) {
  host_addrinfo_t &copy = list.emplace_back();
  static_cast<addrinfo &>(copy) = entry;
  copy.place = {};
  copy.ai_addr = nullptr;
  copy.ai_canonname = nullptr;
  copy.ai_next = nullptr;
  if (entry.ai_addr != nullptr) {
    std::memcpy(&copy.place, entry.ai_addr,
                std::min<std::size_t>(entry.ai_addrlen, sizeof copy.place));
  }
  if (entry.ai_canonname != nullptr) copy.canonical = entry.ai_canonname;
}

addrinfo *host_hand_out(const host_addrinfo_list &list) {
  if (list.empty()) return nullptr;
  std::unique_ptr<host_addrinfo_t[]> copy(new (std::nothrow) host_addrinfo_t[list.size()]);
  if (copy == nullptr) return nullptr;
  for (std::size_t i = 0; i < list.size(); i++) {
    copy[i] = list[i];
    copy[i].ai_addr = reinterpret_cast<sockaddr *>(&copy[i].place);
    copy[i].ai_canonname = copy[i].canonical.empty() ? nullptr : copy[i].canonical.data();
    copy[i].ai_next = i + 1 < list.size() ? &copy[i + 1] : nullptr;
  }
  return copy.release();
}

int ks_inet_getaddrinfo(const char *host, const char *service, const addrinfo *hints,
                        addrinfo **result) {
  if (result == nullptr) return EAI_SYSTEM;
  *result = nullptr;
  ks_ipv6_capable();  // the first use of the layer lists the interfaces
  question_t question = {host != nullptr && *host != '\0' ? host : this_host, service, hints};
  host_addrinfo_list list;
  int rc = look_up(question, list);
  if (rc == 0) {
    *result = host_hand_out(list);
    if (*result == nullptr) rc = EAI_MEMORY;
  }
  if (rc != 0) ks_set_error(rc, KS_ERROR_RESOLVER);
  return rc;
}

void ks_inet_freeaddrinfo(addrinfo *result) {
  std::unique_ptr<host_addrinfo_t[]> list(static_cast<host_addrinfo_t *>(result));
}

}  // namespace qvr
