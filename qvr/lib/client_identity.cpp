#include "client_identity.h"

#include <strings.h>
#include <atomic>

#include <mutex>
#include <unordered_map>

#include "debug_words.h"
#include "hosts.h"
#include "immortal.h"
#include "mif_env.h"

namespace qvr {

namespace {

// A name may lead to another by its address; a name service whose answers go round ends here.
constexpr int NAME_HOPS = 8;

resdb_t *client_rap = nullptr;
client_cache_mode cache_mode = CLIENT_CACHE_AND_RESOURCES;

// What same_client has found out.
struct answers_t {
  std::mutex asking;  // held while a name is looked up, so that no two threads ask for one name
  std::mutex mutex;   // guards both maps; taken last
  std::unordered_map<std::string, bool> pairs;
  std::unordered_map<std::string, std::string> canonical;
};
immortal<answers_t> answers;
std::atomic<bool> lookups_failed{false};

bool is_address(const std::string &text) {
  sockaddr_storage address;
  socklen_t length;
  return ks_parse_address(text.c_str(), address, length);
}

// The host name of an address; empty when it has none.
std::string host_of_address(const std::string &text) {
  sockaddr_storage address;
  socklen_t length;
  char host[NI_MAXHOST];
  if (!ks_parse_address(text.c_str(), address, length) ||
      ks_inet_getnameinfo(reinterpret_cast<const sockaddr *>(&address), length, host, sizeof host,
                          nullptr, 0, 0) != 0)
    return {};
  return host;
}

errobj_t *find_client(std::string_view attribute, const std::string &name, reslist_t &found) {
  attrlist query = attrlist_build({{"type", {"QVR client"}}, {attribute, {name}}});
  return resdb_query(client_rap, query, attrlist_build({{"aliases"}, {"name"}}), 1, found);
}

// The client's name in the resource database, whose aliases then answer for themselves. False with
// an error printed.
bool name_by_resource(const std::string &name, std::string &client) {
  reslist_t found;
  errobj_t *error = find_client("aliases", name, found);
  if (error == nullptr && found.empty()) error = find_client("name", name, found);
  if (error != nullptr) {
    note_client_lookup_failure();
    err_print(error);
    return false;
  }
  if (found.empty()) return true;
  const attrlist &attrs = found.front().attrs;
  const std::string *first = attrlist_first(attrs, "name");
  if (first == nullptr) return true;
  const attr_t *aliases = attrlist_find(attrs, "aliases");
  if (aliases != nullptr) {
    for (const std::string &alias : aliases->values) {
      if (int failed = ks_client_add_alias(first->c_str(), alias.c_str()); failed != 0) {
        err_print(err_from_table(1, failed));
        return false;
      }
    }
  }
  client = *first;
  return true;
}

bool known_name(const std::string &asked, std::string &found) {
  std::lock_guard guard(answers->mutex);
  auto known = answers->canonical.find(asked);
  if (known == answers->canonical.end()) return false;
  found = known->second;
  return true;
}

std::string canonical_name(const std::string &asked) {
  std::string found;
  if (known_name(asked, found)) return found;
  std::lock_guard one_at_a_time(answers->asking);
  if (known_name(asked, found)) return found;
  found = get_client_by_name(asked);
  std::lock_guard guard(answers->mutex);
  answers->canonical.emplace(asked, found);
  return found;
}

bool equal_names(const std::string &a, const std::string &b) {
  return !a.empty() && strcasecmp(a.c_str(), b.c_str()) == 0;
}

bool decide_same(const std::string &a, const std::string &b) {
  if (ks_same_host(a.c_str(), b.c_str())) return true;
  if (cache_mode == CLIENT_CACHE_ALONE)
    return equal_names(ks_client_primary_of(a.c_str()), ks_client_primary_of(b.c_str()));
  std::string first = canonical_name(a);
  return !first.empty() && equal_names(first, canonical_name(b));
}

}  // namespace

void set_client_rap(resdb_t *handle) {
  client_rap = handle;
  std::lock_guard guard(answers->mutex);
  answers->pairs.clear();
  answers->canonical.clear();
}

bool client_lookups_failed() {
  return lookups_failed;
}

void note_client_lookup_failure() {
  lookups_failed = true;
}

void set_client_cache_mode(client_cache_mode mode) {
  cache_mode = mode;
}

std::string get_client_by_name(std::string_view name) {
  if (name.empty()) return {};
  std::string at = name == "localhost" ? mif_env().local_host() : std::string(name);
  for (int hop = 0; hop < NAME_HOPS; hop++) {
    std::string client = ks_client_primary_of(at.c_str());
    if (!client.empty()) return client;
    bool address = is_address(at);
    std::string host = address ? ks_host_primary_of(at.c_str()) : std::string();
    if (!host.empty() && !is_address(host)) {
      KS_DEBUG(6,
               "get_client_by_name(%s): trying again, replacing the IP address with the primary "
               "host name %s\n",
               at.c_str(), host.c_str());
      at = host;
      continue;
    }
    if (client_rap == nullptr || !name_by_resource(at, client)) return {};
    if (!client.empty() || !address) return client;
    host = host_of_address(at);
    if (host.empty() || host == at) return {};
    at = host;
  }
  return {};
}

bool same_client(std::string_view a, std::string_view b) {
  if (a.empty() || b.empty()) return false;
  if (a == b) return true;
  std::string first(a), second(b), pair = first + '\0' + second;
  {
    std::lock_guard guard(answers->mutex);
    auto known = answers->pairs.find(pair);
    if (known != answers->pairs.end()) return known->second;
  }
  bool same = decide_same(first, second);
  std::lock_guard guard(answers->mutex);
  return answers->pairs.emplace(std::move(pair), same).first->second;
}

bool client_in_list(const vallist &list, std::string_view name) {
  for (const std::string &entry : list) {
    if (entry == name) return true;
  }
  for (const std::string &entry : list) {
    if (same_client(entry, name)) return true;
  }
  return false;
}

}  // namespace qvr
