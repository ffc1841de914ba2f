// The summary: which save set counts where, and the lines that come of it.
#include <gtest/gtest.h>

#include "dates.h"
#include "ss_flags.h"
#include "summary_print.h"

namespace qvr {
namespace {

constexpr std::int64_t HOUR = 3600, DAY = 24 * HOUR, TODAY = 20000 * DAY;

summary_times_t times() {
  summary_times_t t;
  for (int i = 0; i < SUMMARY_DAYS; i++) t.day[static_cast<std::size_t>(i)] = TODAY - i * DAY;
  t.month = TODAY - 30 * DAY + 10 * HOUR;
  return t;
}

ss_t save_set(std::int32_t level, std::uint64_t size, std::int64_t savetime = 1) {
  ss_t ss;
  ss.client = "mars";
  ss.name = "/home";
  ss.level = level;
  ss.totalsize = size;
  ss.nfiles = 3;
  ss.savetime = savetime;
  ss.ssretent = 100;
  return ss;
}

// Of a full save set of that day back.
std::vector<int> of_day(int back) {
  return {BUCKET_FULL, BUCKET_DAY + back, BUCKET_WEEK, BUCKET_MONTH};
}

TEST(summary, buckets) {
  struct row_t {
    int line;
    ss_t ss;
    std::vector<int> buckets;  // all that count it, but for the first
    std::uint64_t kilobytes;
  };
  ss_t archive = save_set(0, 1024), migrated = save_set(-3, 1024), index = save_set(0, 1024);
  archive.ssretent = migrated.ssretent = DELTA_FOREVER;
  index.client = "VAULT";
  index.name = "inDex:mars";
  const row_t rows[] = {
      {__LINE__, save_set(0, 5), {BUCKET_FULL}, 1},
      {__LINE__, save_set(0, 4), {BUCKET_FULL, BUCKET_EMPTY}, 0},
      {__LINE__, save_set(10, 1025), {BUCKET_INCREMENTAL}, 2},
      {__LINE__, save_set(10, UINT64_MAX), {BUCKET_INCREMENTAL}, std::uint64_t{1} << 54},
      {__LINE__, save_set(-9, 1024), {BUCKET_INTERMEDIATE}, 1},
      {__LINE__, save_set(-2, 1024), {BUCKET_ADHOC}, 1},
      {__LINE__, archive, {BUCKET_ARCHIVE}, 1},
      {__LINE__, migrated, {BUCKET_MIGRATION}, 1},
      {__LINE__, index, {BUCKET_FULL, BUCKET_INDEX}, 1},
      {__LINE__, save_set(0, 1024, TODAY + 5 * DAY), of_day(0), 1},
      {__LINE__, save_set(0, 1024, TODAY - 1), of_day(1), 1},
      {__LINE__, save_set(0, 1024, TODAY - 6 * DAY), of_day(6), 1},
      {__LINE__, save_set(0, 1024, TODAY - 6 * DAY - 1), {BUCKET_FULL, BUCKET_MONTH}, 1},
      {__LINE__, save_set(0, 1024, TODAY - 30 * DAY), {BUCKET_FULL}, 1},
  };
  index_savesets indexes;
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    summary_counts counts{};
    summary_count(row.ss, {times(), "vault", &indexes}, counts);
    EXPECT_EQ(counts[BUCKET_ALL].files, 3u);
    EXPECT_EQ(counts[BUCKET_ALL].kilobytes, row.kilobytes);
    std::vector<int> counted;
    for (int i = 1; i < BUCKETS; i++) {
      if (counts[static_cast<std::size_t>(i)].savesets == 1) counted.push_back(i);
    }
    EXPECT_EQ(counted, row.buckets);
  }
}

TEST(summary, ratios) {
  struct row_t {
    int line;
    usage_counter first, second;
    int want;
  };
  const row_t full_rows[] = {
      {__LINE__, {100, 1, 0}, {100, 1, 0}, 100}, {__LINE__, {100000, 1, 0}, {1, 1, 0}, 1},
      {__LINE__, {0, 0, 0}, {1, 1, 0}, -1},      {__LINE__, {10, 1, 0}, {0, 0, 0}, -1},
      {__LINE__, {1, 2, 0}, {1, 4, 0}, 25},      {__LINE__, {2000, 1, 0}, {100000, 599, 0}, 10},
  };
  for (const row_t &row : full_rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(percent_full_per_incremental(row.first, row.second), row.want);
  }
  const row_t online_rows[] = {
      {__LINE__, {1000, 9, 0}, {1, 1, 0}, 100},   {__LINE__, {1000, 9, 0}, {999, 1, 0}, 1},
      {__LINE__, {2050, 9, 0}, {1025, 1, 0}, 49}, {__LINE__, {10, 9, 0}, {10, 1, 0}, -1},
      {__LINE__, {10, 9, 0}, {0, 0, 0}, -1},
  };
  for (const row_t &row : online_rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(percent_files_online(row.first, row.second), row.want);
  }
}

}  // namespace
}  // namespace qvr
