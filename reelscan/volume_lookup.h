// The volume of a fragment, for rows that are built without one.
#pragma once

#include <optional>
#include <unordered_map>

#include "queries.h"

namespace qvr {

// Volumes from the cache of the calling thread's session. Remembers why one could not be had that
// the server may have: what its rows are missing makes a report that is not whole. From then on the
// cache alone serves, since each further one would wait for a lost server as long as the first did.
class session_volumes {
 public:
  const vol_t *operator()(const ksui &volid) {
    const vol_t *vol = cached_vol(volid, !failure_);
    if (vol == nullptr) note_failure();
    return vol;
  }
  // Behind a query of this thread that gave nothing.
  void note_failure();
  // Null when there was none.
  const errobj_t *failure() const { return failure_ ? &*failure_ : nullptr; }

 private:
  std::optional<errobj_t> failure_;
};

// Volumes by identifier, each asked for once. Main thread; what it gives lives as long as it.
class volume_lookup {
 public:
  // `full`: with the volume's save sets, for a report that counts them. Else the session's cache
  // serves, which is opened up for the life of this object.
  explicit volume_lookup(bool full);
  ~volume_lookup();
  volume_lookup(const volume_lookup &) = delete;
  volume_lookup &operator=(const volume_lookup &) = delete;

  // Null when it cannot be had.
  const vol_t *find(const ksui &volid);
  // The first of all volumes; null when there is none.
  const vol_t *first();
  // As of session_volumes.
  const errobj_t *failure() const { return session_.failure(); }

 private:
  struct id_hash {
    std::size_t operator()(const ksui &id) const {
      return std::hash<std::string_view>()(
          {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()});
    }
  };

  bool full_;
  session_volumes session_;
  std::unordered_map<ksui, vol_list, id_hash> fetched_;
  bool all_asked_ = false;
  vol_list all_;
};

}  // namespace qvr
