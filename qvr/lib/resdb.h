// Reading the resource database: a resource is an attribute list with a "type" and a "name".
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "errobj.h"

namespace qvr {

// An open database. Several threads may use it; it serialises their calls.
class resdb_t;
struct resdb_closer {
  void operator()(resdb_t *handle) const;
};
using resdb_ptr = std::unique_ptr<resdb_t, resdb_closer>;

struct resid_t {
  std::uint8_t id[32] = {};
  std::uint32_t sequence = 0;
};

struct resource_t {
  attrlist attrs;
  resid_t id;
};
using reslist_t = std::vector<resource_t>;

inline constexpr std::uint32_t RESDB_ALL = 0x7ffffff;

// The server's database (`qvrd`) and this host's own (`qvrexecd`).
errobj_t *server_rap_open(std::string_view host, resdb_ptr &handle);
errobj_t *local_rap_open(std::string_view host, resdb_ptr &handle);
// Asks for at most `limit` resources that match `query`, with the attributes `wanted` (empty: what
// the server gives by default). A query that matches nothing is no failure.
errobj_t *resdb_query(resdb_t *handle, const attrlist &query, const attrlist &wanted,
                      std::uint32_t limit, reslist_t &found);

}  // namespace qvr
