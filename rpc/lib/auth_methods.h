// Which flavours may be used with which peer: the parsed value list of the attribute "auth
// methods".
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "errobj.h"

namespace qvr {

// Turns a host name into addresses; null and a non-empty list, or an error object.
using host_resolver =
    std::function<errobj_t *(const std::string &, std::vector<sockaddr_storage> &)>;

// Immutable once parsed; any thread.
class auth_methods {
 public:
  // Each value is "address-or-name/prefix,methods" with "/" between the methods. `from_local`: the
  // values come from this host's own database, so that failures and the added row for localhost are
  // also told by messages. On an error nothing is stored in `methods`.
  static errobj_t *parse(const vallist &values, bool from_local,
                         std::shared_ptr<const auth_methods> &methods,
                         const host_resolver &resolve = {});

  // The mask of the first row whose network holds the peer, 31 with no row; this host itself gets
  // AUTH_METHOD_NONE added. An address of another family is an error.
  errobj_t *mask_for(const sockaddr_storage &peer, std::uint32_t &mask) const;

  struct row {
    sockaddr_storage network = {};
    unsigned prefix = 0;  // in bits; 0 matches every address of both families
    std::uint32_t mask = 0;
  };
  const std::vector<row> &rows() const { return rows_; }

 private:
  std::vector<row> rows_;
};

// The process's object: null, until client start has read it. Guarded by rpc_global's mutex.
void set_auth_methods(std::shared_ptr<const auth_methods> methods);
std::shared_ptr<const auth_methods> get_auth_methods();
// The mask for a peer by the process's object; 31 where there is none or it fails.
std::uint32_t auth_mask_for(const sockaddr_storage &peer);

}  // namespace qvr
