// Which save sets are client file indexes.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qvr {

// Answers for the save sets of the server's own client. What a name turned out to be is kept, since
// asking costs a look-up of a client. Any number of threads.
class index_savesets {
 public:
  bool is_index_saveset(std::string_view name);

 private:
  std::mutex mutex_;  // guards known_; not held during a look-up
  std::unordered_map<std::string, bool> known_;
};

}  // namespace qvr
