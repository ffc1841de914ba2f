// Host names and addresses: every look-up of the system goes through here.
//
// Below the look-ups lie the fault table, the system resolver, and two caches. The level I cache
// remembers answers; the level II cache knows which names and addresses belong to one machine.
// Addresses are IPv4 and IPv6 socket addresses. Look-ups may be called by any thread; no lock is
// held while the system resolver works. Results are EAI_* numbers (RFC 3493).
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

// The cached forward look-up, as getaddrinfo(3). An empty host means "localhost"; `hints` may be
// null. The list is the caller's until it goes to ks_inet_freeaddrinfo, and to nothing else.
int ks_inet_getaddrinfo(const char *host, const char *service, const addrinfo *hints,
                        addrinfo **result);
void ks_inet_freeaddrinfo(addrinfo *result);

// The cached reverse look-up, as getnameinfo(3). EAI_FAIL while reverse look-ups are banned and
// NI_NUMERICHOST is not set. Link-local IPv6 addresses are never looked up.
int ks_inet_getnameinfo(const sockaddr *address, socklen_t length, char *host,
                        std::size_t host_size, char *service, std::size_t service_size, int flags);

// Room for any text of ks_inet_ntop, a scope included.
inline constexpr std::size_t KS_ADDRESS_TEXT = 64;

// The text of an in_addr (AF_INET) or in6_addr (AF_INET6) in `text`, which has KS_ADDRESS_TEXT
// bytes: without "::ffff:" in front of a mapped IPv4 address. Returns `text`, or null for another
// family.
const char *ks_inet_ntop(const void *address, char *text, int family);
// The same of a socket address; empty for another family.
std::string ks_address_text(const sockaddr *address);
// Reads an IPv4 or IPv6 address; false when the text is none. The port is 0.
bool ks_parse_address(const char *text, sockaddr_storage &address, socklen_t &length);

// Whether `name` (a name or an address as text; null counts as local) means this host.
bool ks_is_local_host(const char *name);
// One of "localhost", "localhost6", "loopback" and so on, "127.0.0.1" or "::1", without regard to
// case; null counts as one. Looks nothing up.
bool ks_is_local_alias(const char *name);
// 127.0.0.0/8, ::1, mapped 127.0.0.0/8.
bool ks_is_loopback(const sockaddr *address);
// Loopback, or an address of a local interface. Mapped addresses compare as IPv4.
bool ks_is_local_address(const sockaddr *address);
// The same, remembering the addresses that were found to be local.
bool ks_address_is_local_cached(const sockaddr *address);

// The local host's name in lower case, worked out once. A name that does not resolve ends the
// process with exit code 1. Cut to fit; returns `buffer`.
char *ks_getlocalhost(char *buffer, std::size_t size);
// The NIS domain in lower case. -1 with errno ERANGE when the buffer is too small.
int ks_getdomainname(char *buffer, std::size_t size);

// The local interfaces, listed at the first use of this layer and kept.
struct ks_interface_t {
  std::string name;
  unsigned index = 0;  // the scope of its link-local addresses
  sockaddr_storage address = {};
};
const std::vector<ks_interface_t> &ks_local_interfaces();
// ::1 is configured and an AF_INET6 socket can be made. Decided once.
bool ks_ipv6_capable();

// Reverse DNS state.
enum ks_rdns_state : int {
  KS_RDNS_BANNED = 0,    // the initial value
  KS_RDNS_UNCACHED = 1,  // each look-up goes to the system
  KS_RDNS_CACHED = 2,    // through the level I cache
  KS_RDNS_UNKNOWN = 3,   // the state could not be read
};
// From its word, without regard to case. Null and unknown words are reported and change nothing.
// False when nothing was set.
bool ks_set_rdns_state(const char *word);
ks_rdns_state ks_get_rdns_state();

// The caches. TTLs are in seconds; a negative one leaves its value alone.
void ks_dns_set_ttls(std::int64_t positive, std::int64_t negative);
void ks_dns_enable_level1(bool on);
// What the settings "FlushDnsCache", "PrintDnsCache" and "PrintInactiveClients" do at the next
// level II look-up.
void ks_dns_flush();
void ks_dns_print();
void ks_dns_print_inactive();
// Drops a client from the level I reverse cache. 0, or a portable number.
int ks_inet_remove_client(const char *name);

// The clients table: which names are one client, as the resource database knows it. The primary
// name is the one that the group was made with.
//
// Joins `alias` to the group of `client`, making the group when it is new. 0, or a portable number.
int ks_client_add_alias(const char *client, const char *alias);
// The group's primary name; empty when no live entry has the name.
std::string ks_client_primary_of(const char *name);
// Whether two names are one host: equal without regard to case, or members of one live group of the
// clients or of the hosts table. Looks nothing up.
bool ks_same_host(const char *a, const char *b);
// The primary host name that the hosts table has for a numeric address; empty when it has none.
// Looks nothing up.
std::string ks_host_primary_of(const char *address);
// Retired and decommissioned clients: never looked up.
void ks_client_set_inactive(const char *name);
bool ks_client_is_inactive(const char *name);

}  // namespace qvr
