// The insides of the host layer, shared by its own files.
#pragma once

#include <netdb.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host_seams.h"
#include "hosts.h"
#include "ks_mutex.h"

namespace qvr {

// The resolver in use.
ks_resolver_t &host_resolver();

// A mutex that lives as long as the process; a failure to make it raises SIGTERM.
KSMutex &host_make_mutex();

// An address in a form that compares: mapped IPv4 as IPv4. Family 0 for other families.
struct host_address_t {
  int family = 0;
  std::uint8_t bytes[16] = {};
  bool operator==(const host_address_t &) const = default;
};
host_address_t host_address_of(const sockaddr *address);
bool host_address_is_loopback(const host_address_t &address);
// fe80::/10.
bool host_address_is_link_local(const sockaddr *address);
socklen_t host_address_length(const sockaddr *address);

// The resolver wrappers: the fault table, then the system, with debug lines and reports of slow
// look-ups. A list of host_call_forward goes back to host_free_forward.
int host_call_forward(const char *host, const char *service, const addrinfo *hints,
                      addrinfo **result);
void host_free_forward(addrinfo *result);
int host_call_reverse(const sockaddr *address, socklen_t length, char *host, std::size_t host_size,
                      char *service, std::size_t service_size, int flags);

// A list that the layer hands out: its nodes own their addresses and names.
struct host_addrinfo_t : addrinfo {
  sockaddr_storage place;
  std::string canonical;
};
using host_addrinfo_list = std::vector<host_addrinfo_t>;
// A list for a caller, freed by ks_inet_freeaddrinfo; null for an empty one, or without memory.
addrinfo *host_hand_out(const host_addrinfo_list &list);
void host_append(host_addrinfo_list &list, const addrinfo &entry);

// Fills a caller's buffer; a null one wants nothing. False when it is too small.
bool host_fill(char *buffer, std::size_t size, const std::string &text);

std::string host_lower(std::string text);
bool host_same_text(const char *a, const char *b);

// What DNS says of a name: the texts of its group in their order, the first address in front; empty
// when it has none. No lock is held.
std::vector<std::string> host_ask_dns(const char *name);
// The texts that this host's interfaces add to its group; none while reverse look-ups are banned.
std::vector<std::string> host_interface_texts();
// The cluster layer's test of a name.
bool host_is_virtual(const char *name);

// "localhost" and its like by name; not the numeric ones and not the own name.
bool host_is_alias_name(const char *name);

// Forget what was worked out once. For ks_set_resolver.
void host_forget_local();
void host_forget_faults();
void host_forget_tables();

}  // namespace qvr
