#include "dns_cache.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <string_view>

#include "atexit_list.h"
#include "debug_words.h"
#include "immortal.h"
#include "ks_clock.h"
#include "ks_errors.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr std::size_t BUCKETS = 491;
constexpr std::int64_t DEFAULT_TTL = 1800;

template <class Key, class Value>
struct cached_t {
  Key key;
  std::int64_t expiry;
  Value value;
};

// A hash table of answers. The caller locks it.
template <class Key, class Value>
class answer_table {
 public:
  using entry_t = cached_t<Key, Value>;

  // The live entry of the key, or null.
  const entry_t *find(std::size_t hash, const Key &key) const {
    std::int64_t now = ks_clock_now();
    for (const entry_t &entry : buckets_[hash % BUCKETS]) {
      if (entry.key == key) return entry.expiry > now ? &entry : nullptr;
    }
    return nullptr;
  }
  void put(std::size_t hash, const Key &key, Value value, std::int64_t ttl) {
    std::int64_t expiry;
    if (__builtin_add_overflow(ks_clock_now(), ttl, &expiry)) expiry = INT64_MAX;
    auto &bucket = buckets_[hash % BUCKETS];
    for (entry_t &entry : bucket) {
      if (!(entry.key == key)) continue;
      entry.value = std::move(value);
      entry.expiry = expiry;
      return;
    }
    bucket.push_back({key, expiry, std::move(value)});
  }
  template <class Test>
  std::size_t remove_if(Test test) {
    std::size_t removed = 0;
    for (auto &bucket : buckets_) removed += std::erase_if(bucket, test);
    return removed;
  }
  template <class Function>
  void each(Function function) const {
    for (const auto &bucket : buckets_) {
      for (const entry_t &entry : bucket) function(entry);
    }
  }
  void clear() {
    for (auto &bucket : buckets_) bucket = {};
  }

 private:
  std::array<std::vector<entry_t>, BUCKETS> buckets_;
};

struct forward_value_t {
  bool marker = false;
  host_addrinfo_list list;
};

struct level1_t {
  level1_t() : forward_lock(host_make_mutex()), reverse_lock(host_make_mutex()) {}

  KSMutex &forward_lock;  // guards the table below
  answer_table<forward_key_t, forward_value_t> forward;
  KSMutex &reverse_lock;  // guards the table below
  answer_table<reverse_key_t, reverse_answer_t> reverse;
};

std::atomic<bool> enabled{true};
std::atomic<std::int64_t> positive_ttl{DEFAULT_TTL};
std::atomic<std::int64_t> negative_ttl{DEFAULT_TTL};

level1_t &level1() {
  static immortal<level1_t> the_cache;
  static const int registered = ks_atexit(dns_cache_flush);
  (void)registered;
  return *the_cache;
}

std::size_t mix(std::size_t hash, std::size_t value) {
  return hash * 1000003u ^ value;
}

std::size_t hash_of(const forward_key_t &key) {
  std::size_t hash = std::hash<std::string_view>()(key.host);
  hash = mix(hash, std::hash<std::string_view>()(key.service));
  hash = mix(hash, static_cast<std::size_t>(key.flags));
  hash = mix(hash, static_cast<std::size_t>(key.family));
  return mix(hash,
             static_cast<std::size_t>(key.socktype) << 8 | static_cast<std::size_t>(key.protocol));
}

std::size_t hash_of(const reverse_key_t &key) {
  std::string_view bytes(reinterpret_cast<const char *>(&key.address), key.length);
  return mix(std::hash<std::string_view>()(bytes), static_cast<std::size_t>(key.flags));
}

bool keeps(const forward_key_t &key) {
  return enabled && key.host.size() <= DNS_HOST_MAX && key.service.size() <= DNS_SERVICE_MAX;
}

const char *family_word(int family) {
  return family == AF_INET ? "inet" : family == AF_INET6 ? "inet6" : "unspec";
}

std::string protocol_word(int protocol) {
  return protocol == IPPROTO_TCP   ? "tcp"
         : protocol == IPPROTO_UDP ? "udp"
                                   : std::to_string(protocol);
}

void print_forward(const forward_key_t &key, const std::string &address) {
  msg_print(0, 50000, MSG_STDERR,
            "hostname: %s, address: %s, ai_flags: 0x%04x, family: %s, protocol: %s\n",
            {{MSG_ARG_HOST, key.host},
             {MSG_ARG_ADDRESS, address},
             {MSG_ARG_UINT, msg_arg_uint(static_cast<unsigned>(key.flags))},
             {MSG_ARG_TEXT, family_word(key.family)},
             {MSG_ARG_TEXT, protocol_word(key.protocol)}});
}

}  // namespace

bool reverse_key_t::operator==(const reverse_key_t &other) const {
  return length == other.length && flags == other.flags &&
         std::memcmp(&address, &other.address, length) == 0;
}

reverse_key_t reverse_key(const sockaddr *address, socklen_t length, int flags) {
  reverse_key_t key;
  key.length = length < sizeof key.address ? length : socklen_t{sizeof key.address};
  std::memcpy(&key.address, address, key.length);
  key.flags = flags;
  return key;
}

dns_found dns_cache_forward(const forward_key_t &key, host_addrinfo_list &answer) {
  if (!keeps(key)) return dns_found::no;
  level1_t &cache = level1();
  std::lock_guard hold(cache.forward_lock);
  const auto *entry = cache.forward.find(hash_of(key), key);
  if (entry == nullptr) return dns_found::no;
  if (entry->value.marker) return dns_found::marker;
  answer = entry->value.list;
  return dns_found::answer;
}

void dns_cache_put_forward(const forward_key_t &key, const host_addrinfo_list *answer) {
  if (!keeps(key)) return;
  level1_t &cache = level1();
  std::lock_guard hold(cache.forward_lock);
  forward_value_t value;
  value.marker = answer == nullptr;
  if (answer != nullptr) value.list = *answer;
  cache.forward.put(hash_of(key), key, std::move(value),
                    answer != nullptr ? positive_ttl : negative_ttl);
}

std::optional<reverse_answer_t> dns_cache_reverse(const reverse_key_t &key) {
  if (!enabled) return std::nullopt;
  level1_t &cache = level1();
  std::lock_guard hold(cache.reverse_lock);
  const auto *entry = cache.reverse.find(hash_of(key), key);
  if (entry == nullptr) return std::nullopt;
  return entry->value;
}

void dns_cache_put_reverse(const reverse_key_t &key, const reverse_answer_t *answer) {
  if (!enabled) return;
  level1_t &cache = level1();
  std::lock_guard hold(cache.reverse_lock);
  cache.reverse.put(hash_of(key), key, answer != nullptr ? *answer : reverse_answer_t(),
                    answer != nullptr ? positive_ttl : negative_ttl);
}

std::int64_t dns_positive_ttl() {
  return positive_ttl;
}

std::int64_t dns_negative_ttl() {
  return negative_ttl;
}

void ks_dns_set_ttls(std::int64_t positive, std::int64_t negative) {
  if (positive >= 0) positive_ttl = positive;
  if (negative >= 0) negative_ttl = negative;
}

void ks_dns_enable_level1(bool on) {
  enabled = on;
}

int ks_inet_remove_client(const char *name) {
  if (name == nullptr) return ks_null_argument();
  level1_t &cache = level1();
  std::size_t removed;
  {
    std::lock_guard hold(cache.reverse_lock);
    removed = cache.reverse.remove_if(
        [name](const auto &entry) { return host_same_text(entry.value.host.c_str(), name); });
  }
  if (removed == 0) {
    KS_DEBUG(1, "Unable to remove client '%s' from the DNS Level-1 nameinfo cache: %s\n", name,
             ks_strerror(ENOENT));
    return ks_set_error(ENOENT, KS_ERROR_ERRNO);
  }
  KS_DEBUG(1, "client '%s' removed from the DNS Level-1 nameinfo cache", name);
  return KS_OK;
}

void dns_cache_flush() {
  level1_t &cache = level1();
  {
    std::lock_guard hold(cache.forward_lock);
    cache.forward.clear();
  }
  std::lock_guard hold(cache.reverse_lock);
  cache.reverse.clear();
}

void dns_cache_print() {
  level1_t &cache = level1();
  msg_print(0, 50000, MSG_STDERR, "DNS (level I) cache:\n");
  {
    std::lock_guard hold(cache.forward_lock);
    cache.forward.each([](const auto &entry) {
      if (entry.value.list.empty()) print_forward(entry.key, {});
      for (const host_addrinfo_t &one : entry.value.list) {
        print_forward(entry.key, ks_address_text(reinterpret_cast<const sockaddr *>(&one.place)));
      }
    });
  }
  std::lock_guard hold(cache.reverse_lock);
  cache.reverse.each([](const auto &entry) {
    msg_print(
        0, 50000, MSG_STDERR, "hostname: %s, service: %s, address: %s, ni_flags 0x%04x\n",
        {{MSG_ARG_HOST, entry.value.host},
         {MSG_ARG_TEXT, entry.value.service},
         {MSG_ARG_ADDRESS, ks_address_text(reinterpret_cast<const sockaddr *>(&entry.key.address))},
         {MSG_ARG_UINT, msg_arg_uint(static_cast<unsigned>(entry.key.flags))}});
  });
}

void dns_cache_forget() {
  dns_cache_flush();
  enabled = true;
  positive_ttl = DEFAULT_TTL;
  negative_ttl = DEFAULT_TTL;
}

}  // namespace qvr
