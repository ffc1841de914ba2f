// The walk through a device's directories: which record files a range asks for.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "storage_session.h"

namespace qvr {

inline constexpr int STORAGE_WALK_DEPTH = 64;

// One record file that a walk found.
struct rec_candidate {
  std::int64_t rc_time = 0;
  std::string rc_path;
  bool rc_incomplete = false;  // only the lock marker exists, or both exist
  bool rc_first_layout = false;
};
// By save time, newest first.
using rec_candidates = std::map<std::int64_t, rec_candidate, std::greater<>>;

// The candidates of one pass. After an error `list` holds what was found before it.
errobj_t *find_candidates(const cat_session &session, const mr_range &mr, storage_layout layout,
                          bool uncommitted, rec_candidates &list);
// The path of a save time's record in the second layout, with the subspaces to try. The last path
// that was tried stays when no file was found.
errobj_t *find_record_path(const cat_session &session, std::int64_t time, std::string &path);

}  // namespace qvr
