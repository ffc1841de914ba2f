// The level II cache: which names and addresses are one machine, and which machine is this one.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include "atexit_list.h"
#include "debug_settings.h"
#include "debug_words.h"
#include "dns_cache.h"
#include "host_parts.h"
#include "host_table.h"
#include "immortal.h"
#include "ks_errors.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr std::size_t HOSTS_LEAST = 131072;
constexpr std::size_t CLIENTS_LEAST = 1048576;

std::size_t slots_of(const char *variable, std::size_t least) {
  const char *text = ks_getenv(variable);
  if (text == nullptr) return least;
  long value = std::atol(text);
  return value > 0 ? std::max(static_cast<std::size_t>(value), least) : least;
}

struct level2_t {
  level2_t()
      : lock(host_make_mutex()),
        hosts(slots_of("MAX_DNS_CACHE_SIZE", HOSTS_LEAST)),
        clients(slots_of("MAX_CLIENTS_CACHE_SIZE", CLIENTS_LEAST)),
        inactive(slots_of("MAX_CLIENTS_CACHE_SIZE", CLIENTS_LEAST)) {}

  KSMutex &lock;  // guards the three tables; released during DNS work
  host_table_t hosts;
  host_table_t clients;
  host_table_t inactive;
  std::uint64_t flushes = 0;  // under lock
};

void empty_tables();

level2_t &level2() {
  static immortal<level2_t> the_tables;
  static const int registered = ks_atexit(empty_tables);
  (void)registered;
  return *the_tables;
}

void empty_tables() {
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  all.hosts.clear();
  all.clients.clear();
  all.inactive.clear();
}

using host_lock_t = std::unique_lock<KSMutex>;

void print_table(const host_table_t &table) {
  for (const auto &entry : table.entries()) {
    if (entry->primary != entry.get() || entry->state == HOST_DROPPED) continue;
    std::string group = entry->text;
    for (const host_entry_t *other = entry->next; other != nullptr; other = other->next) {
      group += " " + other->text;
    }
    msg_print(0, 50000, MSG_STDERR, "%s\n", {{MSG_ARG_TEXT, group}});
  }
}

void print_size(const char *format, std::size_t count) {
  msg_print(0, 50000, MSG_STDERR, format, {{MSG_ARG_INT, msg_arg_long(static_cast<long>(count))}});
}

void print_inactive(level2_t &all) {
  msg_print(0, 50000, MSG_STDERR,
            "Inactive Client's cache: (Clients in Retired or Decommissioned state)\n");
  print_table(all.inactive);
}

void print_all(level2_t &all) {
  dns_cache_print();
  msg_print(0, 50000, MSG_STDERR, "DNS (level II) cache:\n");
  print_size("Size: %d hosts:\n", all.hosts.count());
  print_table(all.hosts);
  msg_print(0, 50000, MSG_STDERR, "Clients cache:\n");
  print_size("Size: %d clients:\n", all.clients.count());
  print_table(all.clients);
  print_inactive(all);
}

// What the operator asked for since the last look-up. The tables are locked.
void act_on_flags(level2_t &all) {
  bool flush = debug_flags.flush_dns_cache != 0, print = debug_flags.print_dns_cache != 0;
  bool inactive = debug_flags.print_inactive_clients != 0;
  if (!flush && !print && !inactive) return;
  if (flush) {
    dns_cache_flush();
    all.hosts.clear();
    all.clients.clear();
    all.flushes++;
  }
  if (print) {
    print_all(all);
  } else if (inactive) {
    print_inactive(all);
  }
  debug_flags.flush_dns_cache = 0;
  debug_flags.print_dns_cache = 0;
  debug_flags.print_inactive_clients = 0;
}

bool is_inactive(level2_t &all, const char *name) {
  if (all.inactive.find(name) == nullptr) return false;
  KS_DEBUG(7, "DEBUG: Host %s is a retired or decommissioned client.Skipping the DNS lookup.\n",
           name);
  return true;
}

host_entry_t *store_group(host_table_t &hosts, const std::vector<std::string> &texts) {
  std::string failed;
  host_entry_t *primary = hosts.store(texts, dns_positive_ttl(), failed);
  if (primary != nullptr) return primary;
  if (failed == texts.front()) {
    KS_DEBUG(1, "Failed to insert DNS cache entry: %s\n", ks_strerror(ENOMEM));
  } else {
    KS_DEBUG(1, "Failed to add %s entry to DNS cache: %s", failed.c_str(), ks_strerror(ENOMEM));
  }
  return nullptr;
}

// The live entry of a name, resolved if it has to be. The lock is held on both sides and released
// meanwhile; null when the entry could not be stored.
host_entry_t *resolve(level2_t &all, host_lock_t &hold, const char *name) {
  if (host_entry_t *entry = all.hosts.find(name)) return entry;
  hold.unlock();
  std::vector<std::string> texts = host_ask_dns(name);
  hold.lock();
  // Another thread may have been faster.
  if (host_entry_t *entry = all.hosts.find(name)) return entry;
  if (!texts.empty()) {
    return store_group(all.hosts, texts) != nullptr ? all.hosts.find(name) : nullptr;
  }
  host_entry_t *failure = all.hosts.store_failure(name, dns_negative_ttl());
  if (failure == nullptr) {
    KS_DEBUG(1, "Failed to insert DNS cache entry: %s\n", ks_strerror(ENOMEM));
  }
  return failure;
}

// The primary of this host, built when there is none; null when its name does not resolve.
const host_entry_t *self_primary(level2_t &all, host_lock_t &hold) {
  char name[NI_MAXHOST];
  hold.unlock();
  ks_getlocalhost(name, sizeof name);
  hold.lock();
  const host_entry_t *self = all.hosts.self();
  if (self != nullptr && all.hosts.find(self->text) == self) return self;
  host_entry_t *entry = resolve(all, hold, name);
  if (entry == nullptr || entry->state != HOST_RESOLVED) return nullptr;
  hold.unlock();
  std::vector<std::string> texts = host_interface_texts();
  hold.lock();
  entry = all.hosts.find(name);
  if (entry == nullptr || entry->state != HOST_RESOLVED) return nullptr;
  host_entry_t *primary = entry->primary;
  all.hosts.set_self(primary);
  for (const std::string &text : texts) {
    if (!all.hosts.join(primary, text)) {
      KS_DEBUG(1, "Failed to add %s entry to DNS cache: %s", text.c_str(), ks_strerror(ENOMEM));
    }
  }
  return primary;
}

// 1 this host, 0 another one, -1 the table does not know.
int ask_hosts_table_once(level2_t &all, host_lock_t &hold, const char *name) {
  act_on_flags(all);
  if (is_inactive(all, name)) return 0;
  const host_entry_t *entry = resolve(all, hold, name);
  if (entry == nullptr || entry->state != HOST_RESOLVED) return -1;
  if (self_primary(all, hold) == nullptr) return -1;
  // This host's group may have taken the name's address, and with it the name's group, meanwhile.
  entry = resolve(all, hold, name);
  if (entry == nullptr || entry->state != HOST_RESOLVED) return -1;
  return entry->primary == all.hosts.self() ? 1 : -1;
}

// The same, asked again where a flush took the entries away while DNS was asked.
int ask_hosts_table(const char *name) {
  constexpr int tries = 16;
  level2_t &all = level2();
  host_lock_t hold(all.lock);
  int answer = -1;
  for (int i = 0; i < tries; i++) {
    std::uint64_t flushes = all.flushes;
    answer = ask_hosts_table_once(all, hold, name);
    if (answer >= 0 || flushes == all.flushes) break;
  }
  return answer;
}

// The name to ask the cluster layer for, from an address.
std::string name_of_address(const char *name) {
  sockaddr_storage address;
  socklen_t length;
  if (!ks_parse_address(name, address, length)) return name;
  char text[NI_MAXHOST];
  int rc = ks_inet_getnameinfo(reinterpret_cast<sockaddr *>(&address), length, text, sizeof text,
                               nullptr, 0, NI_NAMEREQD);
  if (rc == 0) return text;
  if (ks_get_rdns_state() != KS_RDNS_BANNED || debug_on(1)) {
    msg_print(90480, rc + 12000, MSG_STDERR, "Unable to determine the name of address '%s': %s\n",
              {{MSG_ARG_ADDRESS, name}, {MSG_ARG_ERRTEXT, ks_gai_strerror(rc)}});
  }
  return name;
}

bool is_own_name(const char *name) {
  char own[NI_MAXHOST];
  return host_same_text(name, ks_getlocalhost(own, sizeof own));
}

bool same_group(const host_table_t &table, const char *a, const char *b) {
  const host_entry_t *first = table.find(a), *second = table.find(b);
  return first != nullptr && second != nullptr && first->state == HOST_RESOLVED &&
         second->state == HOST_RESOLVED && first->primary == second->primary;
}

}  // namespace

bool ks_is_local_host(const char *name) {
  if (name == nullptr || ks_is_local_alias(name) || is_own_name(name)) return true;
  int answer = ask_hosts_table(name);
  if (answer >= 0) return answer == 1;
  return host_is_virtual(name_of_address(name).c_str());
}

void ks_dns_flush() {
  debug_flags.flush_dns_cache = 1;
}

void ks_dns_print() {
  debug_flags.print_dns_cache = 1;
}

void ks_dns_print_inactive() {
  debug_flags.print_inactive_clients = 1;
}

int ks_client_add_alias(const char *client, const char *alias) {
  if (client == nullptr || alias == nullptr) return ks_null_argument();
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  std::string failed;
  if (all.clients.store({client, alias}, dns_positive_ttl(), failed) != nullptr) return KS_OK;
  KS_DEBUG(1, "Failed to add %s entry to DNS cache: %s", failed.c_str(), ks_strerror(ENOMEM));
  return ks_set_error(ENOMEM, KS_ERROR_ERRNO);
}

std::string ks_client_primary_of(const char *name) {
  if (name == nullptr) return {};
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  act_on_flags(all);
  const host_entry_t *entry = all.clients.find(name);
  return entry != nullptr && entry->state == HOST_RESOLVED ? entry->primary->text : std::string();
}

bool ks_same_host(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return false;
  if (host_same_text(a, b)) return true;
  auto is_this_host = [](const char *name) { return ks_is_local_alias(name) || is_own_name(name); };
  if (is_this_host(a) && is_this_host(b)) return true;
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  act_on_flags(all);
  return same_group(all.clients, a, b) || same_group(all.hosts, a, b);
}

std::string ks_host_primary_of(const char *address) {
  if (address == nullptr) return {};
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  act_on_flags(all);
  const host_entry_t *entry = all.hosts.find(address);
  if (entry == nullptr || entry->state != HOST_RESOLVED) return {};
  // A group begins with an address; its first name is the machine's.
  for (const host_entry_t *member = entry->primary; member != nullptr; member = member->next) {
    sockaddr_storage parsed;
    socklen_t length;
    if (!ks_parse_address(member->text.c_str(), parsed, length)) return member->text;
  }
  return {};
}

void ks_client_set_inactive(const char *name) {
  if (name == nullptr) return;
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  std::string failed;
  all.inactive.store({name}, INT64_MAX, failed);
}

bool ks_client_is_inactive(const char *name) {
  if (name == nullptr) return false;
  level2_t &all = level2();
  std::lock_guard hold(all.lock);
  return all.inactive.find(name) != nullptr;
}

void host_forget_tables() {
  empty_tables();
}

}  // namespace qvr
