// Lines of the history report, from records in memory.
#include <gtest/gtest.h>

#include "dates.h"
#include "field_catalogue.h"
#include "history_query.h"
#include "history_row.h"

namespace qvr {
namespace {

report_columns_t columns_of(std::initializer_list<std::pair<const char *, int>> words) {
  report_columns_t columns;
  for (auto [word, width] : words) {
    const mr_t *field = rptdata_find(field_catalogue(), word);
    columns.push_back({field, width != 0 ? width : static_cast<int>(field->mr_width), {}});
  }
  return columns;
}

errobj_t *no_client(const ksui &, std::string &) {
  return nullptr;
}

hist change(std::int32_t operation, std::int64_t clone, std::string_view property,
            std::string_view oldvalue, std::string_view newvalue) {
  hist record;
  record.hist_id = ksui_from_number(17);
  record.operation = operation;
  record.hist_clone = clone;
  record.timestamp = 86400;
  record.user = "root";
  record.property = property;
  record.oldvalue = oldvalue;
  record.newvalue = newvalue;
  record.validity = TIME_FOREVER_32;
  return record;
}

TEST(history, lines) {
  setenv("TZ", "UTC", 1);
  tzset();
  struct row_t {
    int line;
    report_columns_t columns;
    hist record;
    const char *want;
  };
  const row_t rows[] = {
      {__LINE__, columns_of({{"ssid", 0}, {"property", 0}, {"newvalue", 0}}),
       change(HIST_UPDATE, 0, "ssretent", "1", "172800"), "17\tssretent\t172800\n"},
      {__LINE__, columns_of({{"newvalue", 24}}), change(HIST_UPDATE, 0, "SSRETENT", "1", "172800"),
       "01/03/70 00:00:00\n"},
      {__LINE__, columns_of({{"newvalue", 9}}),
       change(HIST_UPDATE, 0, "clretent", "1", "2147483647"), "forever\n"},
      {__LINE__, columns_of({{"oldvalue", 24}}), change(HIST_UPDATE, 0, "clretent", "-5", ""),
       "-5\n"},
      {__LINE__, columns_of({{"newvalue", 24}}), change(HIST_UPDATE, 0, "pool", "1", "100%d"),
       "100%d\n"},
      {__LINE__, columns_of({{"timestamp", 9}, {"timestamp", 24}, {"validity", 0}}),
       change(HIST_CREATE, 0, "ssid", "", ""), "86400\t01/02/70 00:00:00\tforever\n"},
      {__LINE__, columns_of({{"operation", 0}, {"operation", 6}, {"cloneid", 0}}),
       change(HIST_DELETE, 44, "flags", "", ""), "2\tdelete\t44\n"},
      {__LINE__, columns_of({{"operation", 4}, {"operation", 5}, {"operation", 9}, {"user", 0}}),
       change(7, 0, "x", "", ""), "\tundef\tundef\troot\n"},
      // The deletion of a save set shows the line for its id alone.
      {__LINE__, columns_of({{"user", 0}}), change(HIST_DELETE, 0, "label", "/home", ""), ""},
      {__LINE__, columns_of({{"user", 0}}), change(HIST_DELETE, 0, "SSID", "17", ""), "root\n"},
      // A column without a field here leaves neither text nor tab.
      {__LINE__, columns_of({{"user", 0}, {"endtime", 0}}), change(HIST_UPDATE, 0, "x", "", ""),
       "root\n"},
      {__LINE__, columns_of({{"endtime", 0}}), change(HIST_UPDATE, 0, "x", "", ""), "\n"},
      {__LINE__, columns_of({{"savetime", 0}, {"user", 0}}), change(HIST_UPDATE, 0, "x", "", ""),
       "\troot\n"},
  };
  cell_renderer cells({}, no_client);
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(history_line({row.columns, cells}, row.record), row.want);
  }
  EXPECT_EQ(history_header(columns_of({{"ssid", 0}, {"space", 0}, {"newvalue", 0}})),
            "ssid\t\tnew value\n");
}

TEST(history, deleted_save_sets_are_rebuilt) {
  hist_list records;
  hist rows[] = {
      change(HIST_DELETE, 0, "label", "/home", ""), change(HIST_UPDATE, 0, "label", "/not", ""),
      change(HIST_DELETE, 0, "CLIENT_NAME", "mars", ""),
      change(HIST_DELETE, 0, "longssid", "17", ""), change(HIST_DELETE, 0, "longssid", "99", "")};
  rows[4].hist_id = ksui_from_number(99);
  for (hist &row : rows) records.rows.push_back(&row);
  sorted_save_sets rebuilt(rebuild_deleted(records));
  ss_t *found = rebuilt.find(ksui_from_number(17));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->name, "/home");
  EXPECT_EQ(found->client, "mars");
  EXPECT_NE(rebuilt.find(ksui_from_number(99)), nullptr);
  EXPECT_EQ(rebuilt.find(ksui_from_number(1)), nullptr);
}

TEST(history, batches_hold_each_id_once) {
  hist_list records;
  std::vector<hist> rows(10);
  for (std::uint32_t i = 0; i < 10; i++) {
    rows[i].hist_id = ksui_from_number(i / 2);
    records.rows.push_back(&rows[i]);
  }
  std::size_t next = 0;
  EXPECT_EQ(distinct_ids(records, 0, 3, next).size(), 3u);
  EXPECT_EQ(next, 6u);
  EXPECT_EQ(distinct_ids(records, next, 3, next).size(), 2u);
  EXPECT_EQ(next, 10u);
}

TEST(history, constraints_become_the_query) {
  auto node = [](const char *word, std::uint32_t cmp, std::uint64_t lo, std::uint64_t hi,
                 std::vector<std::string> values = {}) {
    return query_constraint_t{rptdata_find(field_catalogue(), word), cmp, lo, hi, 0, values};
  };
  history_query_t query;
  ASSERT_TRUE(history_query(
      {node("ssid", QC_EQUAL, 0, 0, {"12"}), node("timestamp", QC_LOWER | QC_EQUAL, 500, 0),
       node("endtime", QC_UPPER | QC_EQUAL, 0, 900), node("user", QC_LIST, 0, 0, {"root", "ann"}),
       node("validity", QC_EQUAL, 7, 0), node("cloneid", QC_EQUAL, 33, 0)},
      query));
  EXPECT_EQ(ksui_text(query.ssid, ksui_form::short_form), "12");
  EXPECT_EQ(query.range.mr_start_time, 500u);
  EXPECT_EQ(query.range.mr_end_time, 900u);
  EXPECT_EQ(query.range.mr_count, 1000);
  EXPECT_EQ(query.clone, 33);
  EXPECT_TRUE(attrlist_has(query.attrs, "user", "root") &&
              attrlist_has(query.attrs, "user", "ann"));
  EXPECT_TRUE(attrlist_has(query.attrs, "validity", "7"));

  history_query_t open_end;
  ASSERT_TRUE(history_query({node("endtime", QC_LOWER | QC_EQUAL, 900, 0)}, open_end));
  EXPECT_EQ(open_end.range.mr_end_time, 0x7fffffffu);
  history_query_t bad;
  EXPECT_FALSE(history_query({node("ssid", QC_EQUAL, 0, 0, {"12x"})}, bad));
}

}  // namespace
}  // namespace qvr
