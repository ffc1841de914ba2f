#include <gtest/gtest.h>

#include <string>

#include "field_catalogue.h"
#include "report_spec.h"

using namespace qvr;

namespace {

std::string dump(const report_columns_t &columns) {
  std::string text;
  for (const report_column_t &column : columns) {
    if (!text.empty()) text += ' ';
    text += std::string(column.rc_mr->mr_key) + ":" + std::to_string(column.rc_width);
  }
  return text;
}

struct spec_row {
  int line;
  const char *text;
  const char *wanted;  // the columns once closed, or the refusal with "!" in front
};

}  // namespace

TEST(report_spec, columns_and_refusals) {
  static constexpr spec_row rows[] = {
      {__LINE__, "client(20), name", "client:20 name:31 newline:1"},
      {__LINE__, "  CLIENT ( 20 ) , name  ", "client:20 name:31 newline:1"},
      {__LINE__, "client,client", "client:11 client:11 newline:1"},
      {__LINE__, "client, newline", "client:11 newline:1"},
      {__LINE__, "client, newline(3)", "client:11 newline:3"},
      {__LINE__, "newline, client", "newline:1 client:11 newline:1"},
      {__LINE__, "space(255)", "space:255 newline:1"},
      {__LINE__, "%used(1)", "%used:1 newline:1"},
      {__LINE__, "space(256)", "!column width of `space' is invalid"},
      {__LINE__, "client(0)", "!column width of `client' is invalid"},
      {__LINE__, "client()", "!column width of `client' is invalid"},
      {__LINE__, "client(-5)", "!column width of `client' is invalid"},
      {__LINE__, "client(99999999999999999999)", "!column width of `client' is invalid"},
      {__LINE__, "client(20", "!missing close parenthesis after report constraint `client'"},
      {__LINE__, "client(20, name", "!missing close parenthesis after report constraint `client'"},
      {__LINE__, "client(20) name", "!missing comma after report constraint `client'"},
      {__LINE__, "client(20)(30)", "!missing comma after report constraint `client'"},
      {__LINE__, "client,", "!unknown report constraint: "},
      {__LINE__, "client, ", "!unknown report constraint: "},
      {__LINE__, "", "!unknown report constraint: "},
      {__LINE__, "client name", "!unknown report constraint: client name"},
      {__LINE__, "bogus (5)", "!unknown report constraint: bogus"},
      {__LINE__, "full", "!constraint `full' is only valid for queries"},
      {__LINE__, "full(0)", "!constraint `full' is only valid for queries"},
      {__LINE__, "ssattr", "!constraint `ssattr' is only valid for queries"},
      {__LINE__, "dedupe", "!constraint `dedupe' is only valid for queries"},
  };
  for (const spec_row &row : rows) {
    SCOPED_TRACE(row.line);
    report_columns_t columns;
    const char *error = parse_report_spec(row.text, columns);
    close_report(columns);
    EXPECT_EQ(error != nullptr ? std::string("!") + error : dump(columns), row.wanted);
  }
}

TEST(report_spec, several_texts_add_up) {
  report_columns_t columns;
  close_report(columns);
  EXPECT_TRUE(columns.empty());
  EXPECT_EQ(parse_report_spec({}, columns), nullptr);
  EXPECT_EQ(parse_report_spec("ssid(11)", columns), nullptr);
  EXPECT_NE(parse_report_spec("client,bogus", columns), nullptr);
  EXPECT_EQ(dump(columns), "ssid:11 client:11");
}

TEST(field_catalogue, words_are_found_whole_and_in_any_case) {
  field_table table = field_catalogue();
  EXPECT_EQ(rptdata_find(table, "SSID"), rptdata_find(table, "SsId  "));
  ASSERT_NE(rptdata_find(table, "ssid"), nullptr);
  EXPECT_EQ(rptdata_find(table, "ss"), nullptr);
  EXPECT_EQ(rptdata_find(table, ""), nullptr);
  EXPECT_EQ(rptdata_find(table, " "), nullptr);
  EXPECT_EQ(rptdata_find(table, "savetime") + 1, rptdata_find(table, "nsavetime"));
}
