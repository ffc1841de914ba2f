// The level I cache: what the resolver answered.
#pragma once

#include <netdb.h>

#include <cstdint>
#include <optional>
#include <string>

#include "host_parts.h"

namespace qvr {

// A forward question. Flags and numbers are those of the hints; without hints all are 0.
struct forward_key_t {
  std::string host;
  std::string service;
  bool has_service = false;
  bool has_hints = false;
  int flags = 0, family = 0, socktype = 0, protocol = 0;
  bool operator==(const forward_key_t &) const = default;
};

struct reverse_key_t {
  sockaddr_storage address = {};
  socklen_t length = 0;
  int flags = 0;
  bool operator==(const reverse_key_t &other) const;
};
reverse_key_t reverse_key(const sockaddr *address, socklen_t length, int flags);

struct reverse_answer_t {
  std::string host;
  std::string service;
};

inline constexpr std::size_t DNS_HOST_MAX = 1025;   // longer hosts are not kept
inline constexpr std::size_t DNS_SERVICE_MAX = 32;  // nor longer services

enum class dns_found { no, marker, answer };

// Look-ups hand out copies; an expired entry is not there. With the cache off nothing is found and
// nothing is kept. A null answer stores the marker of a failed look-up. Any thread.
dns_found dns_cache_forward(const forward_key_t &key, host_addrinfo_list &answer);
void dns_cache_put_forward(const forward_key_t &key, const host_addrinfo_list *answer);
// A failed look-up has empty texts.
std::optional<reverse_answer_t> dns_cache_reverse(const reverse_key_t &key);
void dns_cache_put_reverse(const reverse_key_t &key, const reverse_answer_t *answer);

// TTLs of both levels, in seconds.
std::int64_t dns_positive_ttl();
std::int64_t dns_negative_ttl();

void dns_cache_flush();
void dns_cache_print();
// Back to the state of a new process.
void dns_cache_forget();

}  // namespace qvr
