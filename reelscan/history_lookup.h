// Save sets behind change records: those that the media database still has, and those rebuilt from
// their own deletion.
#pragma once

#include <span>
#include <vector>

#include "records.h"

namespace qvr {

// Save sets in the order of their ids.
class sorted_save_sets {
 public:
  explicit sorted_save_sets(ss_list &&list);

  // Null when there is none of that id.
  ss_t *find(const ksui &id) const;

 private:
  ss_list list_;
};

// The save sets whose deletion the records tell. Each gets what its delete records name: id,
// client, client id, name. Texts are borrowed from the records.
ss_list rebuild_deleted(const hist_list &records);

// The distinct save sets of the records from `first` on, at most `limit`; `next` is the record at
// which the collection stopped.
std::vector<ksui> distinct_ids(const hist_list &records, std::size_t first, std::size_t limit,
                               std::size_t &next);

}  // namespace qvr
