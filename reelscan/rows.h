// The rows of a report: which combinations of volume, save set, clone and fragment are shown.
#pragma once

#include <cstdint>
#include <vector>

#include "columns.h"
#include "match.h"
#include "plan.h"
#include "records.h"

namespace qvr {

// It points into the lists of the records and owns nothing. Clone and fragment are set where the
// row is about them; the volume is missing for a save set without fragments.
struct row_t {
  const vol_t *row_vol = nullptr;
  ss_t *row_ss = nullptr;
  const clone_t *row_clone = nullptr;
  const frag_t *row_frag = nullptr;
  std::uint32_t row_ss_number = 0;  // which of the save sets: equal numbers, one record
};
using rows_t = std::vector<row_t>;

// What the row count says beside a number of rows.
inline constexpr std::int64_t ROWS_NEEDED = -1;  // nothing can be printed without rows

struct row_build_t {
  const plan_t &plan;
  const vol_t *vol = nullptr;  // rows of this volume alone
  const chosen_clones_t *clones = nullptr;
  volume_source volumes;  // where the volume of a fragment comes from without one
};

// Appends the rows of the save sets, numbered from `first_number`. With a volume any thread;
// without one the main thread, whose session gives the volumes.
void build_rows(const row_build_t &build, const ss_list &list, std::uint32_t first_number,
                rows_t &rows);
// The count that stands for no rows: 0 when the save sets can be printed by themselves.
std::int64_t count_without_rows(const plan_t &plan, const report_columns_t &columns);

// The specification of the bootstrap report, from its rows; never above 256 bytes. `all` shows
// every column.
std::string bootstrap_spec(const rows_t &rows, bool all);

}  // namespace qvr
