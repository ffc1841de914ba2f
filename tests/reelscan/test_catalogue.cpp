#include <gtest/gtest.h>

#include <set>
#include <string>

#include "field_catalogue.h"

using namespace qvr;

TEST(field_catalogue, words_are_found_whole_and_in_any_case) {
  field_table table = field_catalogue();
  EXPECT_EQ(rptdata_find(table, "SSID"), rptdata_find(table, "SsId  "));
  ASSERT_NE(rptdata_find(table, "ssid"), nullptr);
  EXPECT_EQ(rptdata_find(table, "ss"), nullptr);
  EXPECT_EQ(rptdata_find(table, ""), nullptr);
  EXPECT_EQ(rptdata_find(table, " "), nullptr);
  EXPECT_EQ(rptdata_find(table, "savetime") + 1, rptdata_find(table, "nsavetime"));
  EXPECT_EQ(field_catalogue().data(), table.data());
}

// One row of each shape that the texts come in.
TEST(field_catalogue, texts_and_values_of_rows) {
  static constexpr struct {
    int line;
    const char *key;
    int code;
    rpt_type type;
    std::uint64_t width;
    int flags;
    const char *title;
    const char *longname;
    const char *narrow;  // null: none
  } rows[] = {
      {__LINE__, "volume", 150, RPT_STRING, 15, 34, "volume", "volume", "volume"},
      {__LINE__, "family", 104, RPT_STRING, 4, 34, "family", "family", "fmly"},
      {__LINE__, "full", 114, RPT_FLAGS, 1, 16, "", "full", nullptr},
      {__LINE__, "state", 32, RPT_FLAGS, 7, 0, "state", "volstate", ""},
      {__LINE__, "savetime", 51, RPT_TIME, 9, 15, " date     time", "date-time", "date"},
      {__LINE__, "nsavetime", 171, RPT_NUMBER, 11, 0, "save time", "savetime", "save time"},
      {__LINE__, "space", -1, RPT_STRING, 1, 0, "", "space", ""},
      {__LINE__, "Zirrel", 71, RPT_FLAGS, 10, 16, "dedupe saveset", "dedupe-saveset", nullptr},
      {__LINE__, "ssattr", 91, RPT_STRING, 31, 194, "saveset attribute", "ssattr", nullptr},
      {__LINE__, "transit", 13, RPT_FLAGS, 0x8000000, 16, "", "transit", nullptr},
      {__LINE__, "changes", 123, RPT_UNSIGNED, 7, 0, "changes", "changes", "#changes"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    const mr_t *field = rptdata_find(field_catalogue(), row.key);
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->mr_id, row.code);
    EXPECT_EQ(field->mr_type, row.type);
    EXPECT_EQ(field->mr_width, row.width);
    EXPECT_EQ(field->mr_flags, row.flags);
    EXPECT_EQ(field->mr_title, row.title);
    EXPECT_EQ(field->mr_longname, row.longname);
    EXPECT_EQ(field->has_short, row.narrow != nullptr);
    if (row.narrow != nullptr) {
      EXPECT_EQ(field->mr_short, row.narrow);
    }
  }
}

TEST(field_catalogue, the_linear_record) {
  field_table table = linear_catalogue();
  EXPECT_EQ(table.front().mr_key, "ssid");
  EXPECT_EQ(table.back().mr_key, "filesonline");
  const mr_t *field = rptdata_find(table, "fullfiles/incremental");
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(field->mr_short, "% of full files per incremental\n");
  EXPECT_EQ(field->mr_type, RPT_SIGNED);
  EXPECT_FALSE(rptdata_find(table, "size")->has_short);
  for (const mr_t &each : table) {
    SCOPED_TRACE(std::string(each.mr_key));
    EXPECT_EQ(each.mr_id, 0);
    EXPECT_EQ(each.mr_width, 0u);
  }
}
