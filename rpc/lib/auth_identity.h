// The record that tells an auth server who asks, and its XDR.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "errobj.h"
#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t IDENTITY_STRING_MAX = 32744;
inline constexpr std::uint32_t IDENTITY_GROUPS_MAX = 512;
inline constexpr std::uint32_t IDENTITY_GROUP_NAME_MAX = 1024;
inline constexpr std::uint32_t IDENTITY_GROUP_BYTES_MAX = 10914;

struct auth_identity {
  std::uint32_t time = 0;  // seconds
  std::uint32_t exptime = 0;
  std::string domaintype;
  std::string domain;
  bool canonclient = false;
  std::string machname;
  std::uint32_t application = 0;
  std::string user;
  std::vector<std::string> groups;
  attrlist attributes;
};

// A list of identities is chained: after each record a word that says whether another follows.
// An empty list cannot be told; the decoder takes at most 16 records.
bool xdr_put_identities(XDR &xdr, const std::vector<auth_identity> &identities);
bool xdr_get_identities(XDR &xdr, std::vector<auth_identity> &identities);

// Where user, groups and host come from; a test gives its own. Any thread.
class identity_source {
 public:
  virtual ~identity_source() = default;
  virtual std::uint32_t effective_uid() const;
  virtual std::uint32_t effective_gid() const;
  // As getgroups with room for IDENTITY_GROUPS_MAX, and with room for all: false with errno set.
  virtual bool groups(std::vector<std::uint32_t> &ids) const;
  virtual bool all_groups(std::vector<std::uint32_t> &ids) const;
  // The value of an environment variable, or null.
  virtual const char *environment(const char *name) const;
  virtual std::string user_name(std::uint32_t uid) const;   // empty: no entry
  virtual std::string group_name(std::uint32_t gid) const;  // empty: no entry
  virtual std::string host_name() const;
  virtual std::string nis_domain() const;
};
const identity_source &system_identity();

// The group names of the current user, sorted, within the limit of MAX_KSTR_GROUPS and the summed
// length. The form without a source is cached for the process by effective uid.
std::vector<std::string> identity_groups(const identity_source &source);
std::vector<std::string> identity_groups();

}  // namespace qvr
