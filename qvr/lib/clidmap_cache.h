// The session's memory of the client id map: names to long forms of ids, and back.
#pragma once

#include <string>
#include <string_view>

#include "ks_list.h"

namespace qvr {

inline constexpr std::int64_t CLIDMAP_CACHE_SECONDS = 600;

// Keys compare without regard to case; an entry lives 600 seconds. Made at first use. The session's
// thread only.
class clidmap_cache {
 public:
  // False when the key is not known, or no longer.
  bool find(std::string_view key, std::string &value);
  void store(std::string_view key, std::string_view value);
  void clear() { list_.reset(); }

 private:
  ks_list_ptr list_;
};

}  // namespace qvr
