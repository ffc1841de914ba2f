// What the session asks of a catalogue that lies on storage, in the place of a server.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "attrlist.h"
#include "errobj.h"
#include "mmdb_replies.h"

namespace qvr {

// An open catalogue. One thread at a time.
class mif_catalogue {
 public:
  virtual ~mif_catalogue() = default;
  // Save sets of a range: MMDB_OK with a list, MMDB_NO_ENTRY for none, MMDB_LOCAL_ERROR with the
  // error.
  virtual ss_reply range(std::string_view client, std::string_view name, const attrlist &filter,
                         const mr_range &range) = 0;
  // Save sets by save time, or by identifiers that hold one. Errors are logged, not returned.
  virtual ss_list times(std::string_view client, std::span<const std::int64_t> times) = 0;
  virtual ss_list ids(std::span<const ksui> ids) = 0;
  // "index subspace" as it stands in `attrs`, or none.
  virtual void set_subspace(const attrlist &attrs) = 0;
};

using mif_catalogue_opener = errobj_t *(*)(const attrlist &attrs,
                                           std::unique_ptr<mif_catalogue> &catalogue);

}  // namespace qvr
