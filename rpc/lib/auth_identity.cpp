#include "auth_identity.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>

#include "debug_words.h"
#include "hosts.h"
#include "immortal.h"
#include "ks_wrappers.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::size_t chain_max = 16;
constexpr int system_groups_max = 65536;

// A record of the user or group data base, whose size nobody knows beforehand.
template <class Record, class Look>
std::string name_of(Look look, char *Record::*name) {
  std::string memory(1024, '\0');
  for (;;) {
    Record record;
    Record *found = nullptr;
    int error = look(&record, memory.data(), memory.size(), &found);
    if (error == ERANGE && memory.size() < (1u << 20)) {
      memory.resize(memory.size() * 4);
      continue;
    }
    return error == 0 && found != nullptr ? found->*name : "";
  }
}

bool get_groups(int most, std::vector<std::uint32_t> &ids) {
  // Room for the most, of which only what is filled in costs memory.
  auto found = std::make_unique_for_overwrite<gid_t[]>(static_cast<std::size_t>(most));
  int count = getgroups(most, found.get());
  if (count < 0) return false;
  ids.assign(found.get(), found.get() + count);
  return true;
}

std::size_t groups_limit(const identity_source &source) {
  int limit = IDENTITY_GROUPS_MAX;
  if (const char *text = source.environment("MAX_KSTR_GROUPS")) {
    limit = std::clamp(std::atoi(text), 1, limit);
    KS_DEBUG(8, "env. MAX_KSTR_GROUPS is set to: %s: %d\n", text, limit);
  }
  return static_cast<std::size_t>(limit);
}

bool put_identity(XDR &xdr, const auth_identity &id) {
  for (const std::string *text : {&id.domaintype, &id.domain, &id.machname, &id.user}) {
    if (text->size() > IDENTITY_STRING_MAX) return false;
  }
  if (id.groups.size() > IDENTITY_GROUPS_MAX) return false;
  if (!xdr.put_u32(id.time) || !xdr.put_u32(id.exptime) || !xdr.put_counted(id.domaintype) ||
      !xdr.put_counted(id.domain) || !xdr.put_bool(id.canonclient) ||
      !xdr.put_counted(id.machname) || !xdr.put_u32(id.application) || !xdr.put_counted(id.user) ||
      !xdr.put_u32(static_cast<std::uint32_t>(id.groups.size()))) {
    return false;
  }
  for (const std::string &group : id.groups) {
    if (group.size() > IDENTITY_GROUP_NAME_MAX || !xdr.put_counted(group)) return false;
  }
  return xdr_put_optional_attrlist(xdr, id.attributes);
}

bool get_identity(XDR &xdr, auth_identity &id) {
  std::uint32_t count = 0;
  if (!xdr.get_u32(id.time) || !xdr.get_u32(id.exptime) ||
      !xdr.get_counted(id.domaintype, IDENTITY_STRING_MAX) ||
      !xdr.get_counted(id.domain, IDENTITY_STRING_MAX) || !xdr.get_bool(id.canonclient) ||
      !xdr.get_counted(id.machname, IDENTITY_STRING_MAX) || !xdr.get_u32(id.application) ||
      !xdr.get_counted(id.user, IDENTITY_STRING_MAX) || !xdr.get_u32(count) ||
      count > IDENTITY_GROUPS_MAX) {
    return false;
  }
  id.groups.assign(count, {});
  for (std::string &group : id.groups) {
    if (!xdr.get_counted(group, IDENTITY_GROUP_NAME_MAX)) return false;
  }
  return xdr_get_optional_attrlist(xdr, id.attributes);
}

}  // namespace

bool xdr_put_identities(XDR &xdr, const std::vector<auth_identity> &identities) {
  for (std::size_t i = 0; i < identities.size(); i++) {
    if (!put_identity(xdr, identities[i]) || !xdr.put_bool(i + 1 < identities.size())) return false;
  }
  return !identities.empty();
}

bool xdr_get_identities(XDR &xdr, std::vector<auth_identity> &identities) {
  identities.clear();
  for (bool another = true; another;) {
    if (identities.size() == chain_max) return false;
    auth_identity id;
    if (!get_identity(xdr, id) || !xdr.get_bool(another)) return false;
    identities.push_back(std::move(id));
  }
  return true;
}

std::uint32_t identity_source::effective_uid() const {
  return geteuid();
}

std::uint32_t identity_source::effective_gid() const {
  return getegid();
}

bool identity_source::groups(std::vector<std::uint32_t> &ids) const {
  return get_groups(IDENTITY_GROUPS_MAX, ids);
}

bool identity_source::all_groups(std::vector<std::uint32_t> &ids) const {
  return get_groups(system_groups_max, ids);
}

const char *identity_source::environment(const char *name) const {
  return ks_getenv(name);
}

std::string identity_source::user_name(std::uint32_t uid) const {
  return name_of<passwd>(
      [uid](passwd *record, char *memory, std::size_t size, passwd **found) {
        return getpwuid_r(uid, record, memory, size, found);
      },
      &passwd::pw_name);
}

std::string identity_source::group_name(std::uint32_t gid) const {
  return name_of<group>(
      [gid](group *record, char *memory, std::size_t size, group **found) {
        return getgrgid_r(gid, record, memory, size, found);
      },
      &group::gr_name);
}

std::string identity_source::host_name() const {
  char name[256] = "";
  ks_gethostname(name, sizeof name);
  name[sizeof name - 1] = '\0';
  return name;
}

std::string identity_source::nis_domain() const {
  char name[256] = "";
  return ks_getdomainname(name, sizeof name) == 0 ? name : "";
}

const identity_source &system_identity() {
  static const identity_source source;
  return source;
}

std::vector<std::string> identity_groups(const identity_source &source) {
  std::vector<std::uint32_t> ids;
  if (!source.groups(ids)) {
    int saved = errno;
    ids.clear();
    KS_DEBUG(1, "The getgroups process returned the following error with error code %d: %s.%s\n",
             saved, ks_strerror(saved),
             saved == EINVAL ? " The user may be in more than 512 groups." : "");
  }
  std::uint32_t primary = source.effective_gid();
  if (std::find(ids.begin(), ids.end(), primary) == ids.end()) ids.push_back(primary);

  std::vector<std::string> names;
  for (std::uint32_t id : ids) {
    std::string name = source.group_name(id);
    if (!name.empty() && name.size() <= IDENTITY_GROUP_NAME_MAX) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  std::size_t keep = 0, bytes = 0, limit = std::min(names.size(), groups_limit(source));
  while (keep < limit && bytes + names[keep].size() <= IDENTITY_GROUP_BYTES_MAX) {
    bytes += names[keep++].size();
  }
  if (keep < names.size()) {
    KS_DEBUG(1,
             "Maximum number of groups exceeded, some groups may be dropped from the credential. "
             "%zu of %zu groups are kept.\n",
             keep, names.size());
    names.resize(keep);
  }
  return names;
}

std::vector<std::string> identity_groups() {
  struct cache_t {
    std::mutex mutex;  // guards the names by effective uid
    std::map<std::uint32_t, std::vector<std::string>> by_uid;
  };
  static immortal<cache_t> cache;
  const identity_source &source = system_identity();
  std::uint32_t uid = source.effective_uid();
  std::lock_guard lock(cache->mutex);
  auto at = cache->by_uid.find(uid);
  if (at == cache->by_uid.end()) at = cache->by_uid.emplace(uid, identity_groups(source)).first;
  return at->second;
}

}  // namespace qvr
