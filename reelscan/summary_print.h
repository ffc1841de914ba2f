// The lines of the summary.
#pragma once

#include <cstdint>

#include "rpt.h"
#include "summary_counts.h"
#include "writer.h"

namespace qvr {

// The period that was counted, ends included.
struct summary_period_t {
  std::int64_t start = 0;
  std::int64_t end = 0x7fffffff;
};

// Prints the whole summary. Main thread.
void summary_print(const rpt_settings_t &settings, const summary_counts &counts,
                   const summary_times_t &times, const summary_period_t &period);

// The two ratios, in percent; -1 where there is nothing to compare.
int percent_full_per_incremental(const usage_counter &full, const usage_counter &incremental);
int percent_files_online(const usage_counter &all, const usage_counter &purged);

}  // namespace qvr
