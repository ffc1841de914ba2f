// Changes to the media database, for programs that make them: in batches where the server knows
// how, one at a time where it does not. A report makes none.
//
// Each runs on the calling thread's session and repeats a call once over a new connection, as
// queries do. An error object in the thread's ring, or null.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "errobj.h"
#include "mmdb_replies.h"
#include "records.h"

namespace qvr {

// Save sets; what could not be done stands in `failures` with its error.
errobj_t *update_ss_list(std::span<const ss_t *const> list, std::vector<op_failure_t> &failures);
errobj_t *delete_ss_list(std::span<const ksui> ids, std::vector<op_failure_t> &failures);

// Volumes. `what` and `flag` go to the server as they stand; a server that is told one volume at a
// time does not see them.
errobj_t *update_vol(const vol_t &vol, std::uint32_t what, bool flag);
errobj_t *update_vol_list(std::span<const vol_t *const> list, std::uint32_t what, bool flag,
                          std::vector<ksui> &failed);

// The request of procedure 89 and the two older forms of it, which carry less. A server gets the
// newest form that it knows.
struct ss_related_t {
  ksui ssid;
  std::int64_t first = 0;
  std::int64_t second = 0;
  ksui other;
  std::string_view text;
  attrlist attrs;
};
ss_list get_ss_related(const ss_related_t &asked);

// The operation on one fragment. A server that refused it once is not asked again on the same
// connection; the error is then that of an unknown procedure.
errobj_t *fragment_op(const ksui &ssid, std::int64_t cloneid, const frag_t &frag);

}  // namespace qvr
