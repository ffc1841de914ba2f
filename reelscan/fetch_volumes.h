// Fetching save sets volume by volume with four threads.
#pragma once

#include <string>

#include "function_view.h"
#include "match.h"
#include "plan.h"
#include "rows.h"

namespace qvr {

// What one volume brought. A volume that could not be fetched has no record.
struct volume_slot_t {
  vol_list fresh;        // the volume as fetched anew
  vol_t *vol = nullptr;  // the record that the rows show
  ss_list save_sets;
  chosen_clones_t clones;
  rows_t rows;  // numbered from 0
  bool late_test = false;
};

struct volume_fetch_t {
  const plan_t &plan;
  const query_matcher &matcher;
  std::string server;
};

// Both hand each slot to `take` in the order of the list, as soon as it is that volume's turn, and
// free it behind that. Workers run a bounded number of volumes ahead; each has a session of its
// own. `take` runs in the caller's thread. Null, or what kept the queue from working; the slots
// already taken stay taken.
enum class fetch_failure { none, create, push, destroy };
struct fetch_result_t {
  fetch_failure failure = fetch_failure::none;
  int error = 0;  // errno
};
using take_slot = function_view<void(volume_slot_t &slot)>;

// Each volume in full with its save sets; a count report fetches no save sets.
fetch_result_t fetch_by_volume(const volume_fetch_t &fetch, vol_list &volumes, take_slot take);
// Each volume's save sets and their rows; the volume stays the list's, with the count of its save
// sets brought up to date. Volumes that were not accessed since the lower bound of a time are not
// visited.
fetch_result_t fetch_rows(const volume_fetch_t &fetch, const query_constraints_t &constraints,
                          vol_list &volumes, take_slot take);

// True when a volume cannot hold a save set that the query wants, by the time of its last access.
bool accessed_too_early(const query_constraints_t &constraints, const vol_t &vol);

}  // namespace qvr
