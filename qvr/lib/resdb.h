// Reading the resource database: a resource is an attribute list with a "type" and a "name".
//
// Every failure is an error object in the thread's ring.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "errobj.h"

namespace qvr {

struct resid_t {
  std::uint8_t id[32] = {};
  std::uint32_t sequence = 0;
  bool operator==(const resid_t &) const = default;
};

struct resource_t {
  attrlist attrs;
  resid_t id;
};
using reslist_t = std::vector<resource_t>;

// An open database. Several threads may use it; it serialises their calls. An operation that an
// implementation lacks answers class 3, number 1.
class resdb_t {
 public:
  virtual ~resdb_t() = default;
  virtual errobj_t *rap_create(const attrlist &attrs, resid_t &id);
  virtual errobj_t *rap_delete(const resid_t &id);
  virtual errobj_t *rap_update(const resource_t &resource);
  virtual errobj_t *rap_append(const resource_t &resource);
  virtual errobj_t *rap_retrieve_one(const resid_t &id, resource_t &resource);
  // The resources of `ids`, with the attributes `wanted` (empty: what the server gives by default).
  virtual errobj_t *rap_retrieve(const std::vector<resid_t> &ids, const attrlist &wanted,
                                 reslist_t &resources);
  // The ids of at most `limit` resources that match.
  virtual errobj_t *rap_query(const attrlist &query, std::uint32_t limit,
                              std::vector<resid_t> &ids);
  virtual errobj_t *rap_modify_time(std::int64_t &time);
};
struct resdb_closer {
  void operator()(resdb_t *handle) const { delete handle; }
};
using resdb_ptr = std::unique_ptr<resdb_t, resdb_closer>;

inline constexpr std::uint32_t RESDB_ALL = 0x7ffffff;

// Opens a network database from the attributes "hostname", "ONC program number", "ONC version
// number", "ONC transport", "auth program number", "auth version number", and "login", "password"
// and "domain" for a login in place of the authentication exchange. The handle keeps a copy. What
// the two flags mean is the server's matter. A failed open leaves `handle` null.
errobj_t *resdb_open(const attrlist *attrs, bool flag_a, bool flag_b, resdb_ptr *handle);
// The server's database (`qvrd`) and this host's own (`qvrexecd`).
errobj_t *server_rap_open(std::string_view host, resdb_ptr &handle);
errobj_t *local_rap_open(std::string_view host, resdb_ptr &handle);

// Asks for at most `limit` resources that match `query`, with the attributes `wanted`. A query that
// matches nothing is no failure. On failure the list is empty.
errobj_t *resdb_query(resdb_t *handle, const attrlist &query, const attrlist &wanted,
                      std::uint32_t limit, reslist_t *found);
inline errobj_t *resdb_query(resdb_t *handle, const attrlist &query, const attrlist &wanted,
                             std::uint32_t limit, reslist_t &found) {
  return resdb_query(handle, query, wanted, limit, &found);
}

// How often opening authenticates at most; the "max auth attempts" of this host's settings.
inline constexpr int RAP_AUTH_ATTEMPTS = 5;
void rap_set_auth_attempts(int attempts);
// With the flag set, a busy server is not asked again. The calling thread's.
void rap_set_noretry(bool flag);

}  // namespace qvr
