// Printing rows in their order, each combination once.
#pragma once

#include "match.h"
#include "plan.h"
#include "row_sink.h"
#include "rows.h"

namespace qvr {

struct walk_t {
  const plan_t &plan;
  const query_matcher &matcher;
  row_sink &out;
  bool late_test = false;  // each row is tested while it is walked
  volume_source volumes;   // of the main thread's session
  // The first of all volumes, for a save set that has none; null when there is none. May be empty.
  function_view<const vol_t *()> first_volume;
};

// Sorts and prints the rows. Main thread.
void walk_rows(const walk_t &walk, rows_t &rows);

// Sorts and prints save sets without rows, those of one volume or of none. The result is the number
// of rows printed; a row that the search for its volume leaves out counts. Main thread.
std::size_t print_save_sets(const walk_t &walk, const vol_t *vol, ss_list &list);

}  // namespace qvr
