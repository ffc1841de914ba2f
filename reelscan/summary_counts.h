// What the summary counts.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "index_savesets.h"
#include "records.h"

namespace qvr {

struct usage_counter {
  std::uint64_t files = 0;
  std::uint64_t savesets = 0;
  std::uint64_t kilobytes = 0;

  void add(const usage_counter &other) {
    files += other.files;
    savesets += other.savesets;
    kilobytes += other.kilobytes;
  }
};

inline constexpr int SUMMARY_DAYS = 7;

enum summary_bucket : int {
  BUCKET_ALL = 0,
  BUCKET_FULL,
  BUCKET_INCREMENTAL,
  BUCKET_INTERMEDIATE,
  BUCKET_ADHOC,
  BUCKET_MIGRATION,
  BUCKET_ARCHIVE,
  BUCKET_EMPTY,
  BUCKET_PURGED,
  BUCKET_INDEX,
  BUCKET_INCOMPLETE,
  BUCKET_DAY,  // today, and one more for each day back
  BUCKET_WEEK = BUCKET_DAY + SUMMARY_DAYS,
  BUCKET_MONTH,
  BUCKETS,
};
using summary_counts = std::array<usage_counter, BUCKETS>;

// Where the days, the week and the month begin, in seconds.
struct summary_times_t {
  std::array<std::int64_t, SUMMARY_DAYS> day{};  // the start of the day i days back
  std::int64_t month = 0;
};
summary_times_t summary_times();

// What counting one save set needs to know.
struct summary_terms_t {
  summary_times_t times;
  std::string server;  // its own client's index save sets are counted as such
  index_savesets *indexes = nullptr;
};

// Adds one save set to every bucket that it belongs to.
void summary_count(const ss_t &ss, const summary_terms_t &terms, summary_counts &counts);

}  // namespace qvr
