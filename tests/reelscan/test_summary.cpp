// The summary: which save set counts where, and the lines that come of it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "dates.h"
#include "field_catalogue.h"
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

TEST(summary, buckets) {
  struct row_t {
    int line;
    ss_t ss;
    std::vector<int> buckets;  // all that count it, but for the first
    std::uint64_t kilobytes;
  };
  auto with = [](ss_t ss, auto change) {
    change(ss);
    return ss;
  };
  const row_t rows[] = {
      {__LINE__, save_set(0, 5), {BUCKET_FULL}, 1},
      {__LINE__, save_set(0, 4), {BUCKET_FULL, BUCKET_EMPTY}, 0},
      {__LINE__, save_set(10, 1025), {BUCKET_INCREMENTAL}, 2},
      {__LINE__, save_set(10, UINT64_MAX), {BUCKET_INCREMENTAL}, std::uint64_t{1} << 54},
      {__LINE__, save_set(3, 1024), {BUCKET_INTERMEDIATE}, 1},
      {__LINE__, save_set(-9, 1024), {BUCKET_INTERMEDIATE}, 1},
      {__LINE__, save_set(-2, 1024), {BUCKET_ADHOC}, 1},
      {__LINE__, save_set(-3, 1024), {BUCKET_MIGRATION}, 1},
      {__LINE__,
       with(save_set(0, 1024), [](ss_t &ss) { ss.ssretent = DELTA_FOREVER; }),
       {BUCKET_ARCHIVE},
       1},
      {__LINE__,
       with(save_set(-3, 1024), [](ss_t &ss) { ss.ssretent = DELTA_FOREVER; }),
       {BUCKET_MIGRATION},
       1},
      {__LINE__,
       with(save_set(0, 1024), [](ss_t &ss) { ss.ssflags = SS_RECOVERABLE | SS_INCOMPLETE; }),
       {BUCKET_FULL, BUCKET_PURGED, BUCKET_INCOMPLETE},
       1},
      {__LINE__,
       with(save_set(0, 1024), [](ss_t &ss) { ss.name = "BootStrap"; }),
       {BUCKET_FULL},
       1},
      {__LINE__,
       with(save_set(0, 1024),
            [](ss_t &ss) {
              ss.client = "VAULT";
              ss.name = "BootStrap";
            }),
       {BUCKET_FULL, BUCKET_INDEX},
       1},
      {__LINE__,
       with(save_set(0, 1024),
            [](ss_t &ss) {
              ss.client = "vault";
              ss.name = "inDex:mars";
            }),
       {BUCKET_FULL, BUCKET_INDEX},
       1},
      {__LINE__,
       save_set(0, 1024, TODAY + 5 * DAY),
       {BUCKET_FULL, BUCKET_DAY, BUCKET_WEEK, BUCKET_MONTH},
       1},
      {__LINE__,
       save_set(0, 1024, TODAY - 1),
       {BUCKET_FULL, BUCKET_DAY + 1, BUCKET_WEEK, BUCKET_MONTH},
       1},
      {__LINE__,
       save_set(0, 1024, TODAY - 6 * DAY),
       {BUCKET_FULL, BUCKET_DAY + 6, BUCKET_WEEK, BUCKET_MONTH},
       1},
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

std::string printed(rpt_form form, const summary_counts &counts, const summary_period_t &period) {
  char *text = nullptr;
  std::size_t size = 0;
  std::FILE *stream = open_memstream(&text, &size);
  rpt_settings_t settings;
  settings.form = form;
  if (form != RPT_FORM_NONE) settings.spec = ",";
  settings.linear = true;
  settings.table = linear_catalogue();
  settings.stream = stream;
  summary_print(settings, counts, times(), period);
  std::fclose(stream);
  std::string result(text, size);
  std::free(text);
  return result;
}

TEST(summary, lines) {
  setenv("TZ", "UTC", 1);
  tzset();
  summary_counts counts{};
  counts[BUCKET_ALL] = {7, 3, 2000};
  counts[BUCKET_FULL] = {4, 1, 1500};
  counts[BUCKET_INCREMENTAL] = {3, 2, 500};
  counts[BUCKET_DAY] = {7, 2, 2000};
  counts[BUCKET_WEEK] = {7, 2, 2000};
  counts[BUCKET_MONTH] = {7, 3, 2000};
  const std::string types =
      " Save Set Type Summary:\n"
      "     3 save sets           7 files     2/ss  2000 KB   666 KB/ss   285 KB/file\n"
      "     1 full                4 files     4/ss  1500 KB  1500 KB/ss   375 KB/file\n"
      "     2 incremental         3 files     1/ss   500 KB   250 KB/ss   166 KB/file\n"
      "     0 intermediate\n     0 ad-hoc      \n     0 archive     \n     0 migration   \n"
      "     0 empty       \n     0 purged      \n     0 index       \n     0 incomplete  \n"
      "  37% of full files per incremental\n\n";
  const std::string day =
      "     2 today               7 files     3/ss  2000 KB  1000 KB/ss   285 KB/file\n";
  const std::string week =
      "     2 one week            7 files     3/ss  2000 KB  1000 KB/ss   285 KB/file\n";
  EXPECT_EQ(printed(RPT_FORM_NONE, counts, {TODAY - DAY, TODAY + DAY}),
            types + "\n Recent Save Set Usage Summary:\n" + day + "     0 10/03/24    \n" + week);
  // A day or less, or an end before the sixth day back, has no recent usage.
  EXPECT_EQ(printed(RPT_FORM_NONE, counts, {TODAY - DAY, TODAY}), types);
  EXPECT_EQ(printed(RPT_FORM_NONE, counts, {0, TODAY - 7 * DAY}), types);
  // The header names every column; a line keeps its empty fields; text-only columns are left out.
  std::string delimited = printed(RPT_FORM_DELIMITED, counts, {TODAY - DAY, TODAY});
  EXPECT_EQ(delimited.substr(0, delimited.find("intermediate")),
            "percent-full-files-per-incremental,percent-files-online,saveset-count,label,"
            "total-files,files-per-saveset,total-size,size-per-saveset,size-per-file\n"
            ",,3,save sets,7,2,2000 KB,666 KB,285 KB\n"
            ",,1,full,4,4,1500 KB,1500 KB,375 KB\n"
            ",,2,incremental,3,1,500 KB,250 KB,166 KB\n,,0,");
}

}  // namespace
}  // namespace qvr
