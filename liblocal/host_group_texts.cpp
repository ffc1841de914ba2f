// What DNS says of the names and addresses of one machine.
#include <atomic>

#include "debug_words.h"
#include "host_parts.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

bool no_virtual_hosts(const char *) {
  return false;
}
std::atomic<bool (*)(const char *)> virtual_host_test{no_virtual_hosts};

// The name that an address of a host has; empty, with the failure in `error`, when it has none.
std::string reverse_name(const addrinfo &entry, const std::string &address, int &error) {
  char text[NI_MAXHOST];
  int rc = ks_inet_getnameinfo(entry.ai_addr, entry.ai_addrlen, text, sizeof text, nullptr, 0,
                               NI_NAMEREQD);
  if (rc == 0) return text;
  error = rc;
  KS_DEBUG(9, "Reverse DNS lookup failed for %s: %s.\n", address.c_str(), ks_gai_strerror(rc));
  return {};
}

}  // namespace

bool host_is_virtual(const char *name) {
  return virtual_host_test.load()(name);
}

std::vector<std::string> host_ask_dns(const char *name) {
  addrinfo hints = {};
  hints.ai_flags = AI_CANONNAME;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo *found = nullptr;
  int rc = ks_inet_getaddrinfo(name, nullptr, &hints, &found);
  if (rc != 0) {
    KS_DEBUG(1, "Forward DNS lookup failed for %s: %s\n", name, ks_gai_strerror(rc));
    return {};
  }
  std::string canonical = found->ai_canonname != nullptr ? found->ai_canonname : name;
  bool banned = ks_get_rdns_state() == KS_RDNS_BANNED;
  std::vector<std::string> addresses, further;
  bool named = false;
  int last_error = EAI_NONAME;
  for (const addrinfo *entry = found; entry != nullptr; entry = entry->ai_next) {
    std::string address = ks_address_text(entry->ai_addr);
    std::string address_name = banned ? canonical : reverse_name(*entry, address, last_error);
    named = named || !address_name.empty();
    if (host_is_virtual(address_name.empty() ? address.c_str() : address_name.c_str())) {
      continue;
    }
    KS_DEBUG(9, "Adding cache entry for ip_address: \"%s\"\tHost: \"%s\"\n", address.c_str(),
             address_name.c_str());
    addresses.push_back(address);
    further.push_back(address_name);
  }
  ks_inet_freeaddrinfo(found);
  if (!named) {
    KS_DEBUG(1,
             "DNS cache lookup failed for \"%s\": \"%s\". Please ensure that the hostname and its "
             "aliases are updated in the DNS server\n",
             name, ks_gai_strerror(last_error));
    return {};
  }
  std::vector<std::string> texts;
  if (!addresses.empty()) texts.push_back(addresses.front());
  texts.push_back(canonical);
  texts.push_back(name);
  for (std::size_t i = 0; i < addresses.size(); i++) {
    if (i != 0) texts.push_back(addresses[i]);
    if (!further[i].empty()) texts.push_back(further[i]);
  }
  return texts;
}

std::vector<std::string> host_interface_texts() {
  std::vector<std::string> texts;
  if (ks_get_rdns_state() == KS_RDNS_BANNED) {
    KS_DEBUG(1,
             "Caching of all nics for this host not done due to reverse DNS lookups being "
             "banned.\n");
    return texts;
  }
  for (const ks_interface_t &one : ks_local_interfaces()) {
    const auto *address = reinterpret_cast<const sockaddr *>(&one.address);
    std::string text = ks_address_text(address);
    texts.push_back(text);
    char name[NI_MAXHOST];
    int rc = ks_inet_getnameinfo(address, host_address_length(address), name, sizeof name, nullptr,
                                 0, NI_NAMEREQD);
    if (rc == 0) {
      texts.push_back(name);
    } else {
      KS_DEBUG(1,
               "DNS lookup failed for address %s. Please ensure that the hostname and its aliases "
               "are updated in the DNS server\n",
               text.c_str());
    }
  }
  return texts;
}

void ks_set_virtual_host_test(bool (*test)(const char *name)) {
  virtual_host_test = test != nullptr ? test : no_virtual_hosts;
}

}  // namespace qvr
