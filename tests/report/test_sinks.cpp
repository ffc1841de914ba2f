// The forms of output, from columns and values to the bytes on the stream.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "report.h"
#include "report_fixture.h"

namespace qvr {
namespace {

const std::vector<mr_t> &table() {
  static const std::vector<mr_t> fields = {
      make_field("name", RPT_STRING, "name", "name", "nm", 6),
      make_field("%used", RPT_UNSIGNED, "% used", "percent-used", "%", 6),
      make_field("savetime", RPT_TIME, "date", "date-time", "date", 6),
      make_field("span", RPT_DURATION, "span", "span", "span", 6),
      make_field("again", RPT_FLAGS, "again", "name", "", 6),
      make_field("hidden", RPT_LEVEL, "", "blevel", "", 6),
      make_space_field(),
      make_newline_field(),
  };
  return fields;
}

report_columns_t columns_of(std::initializer_list<std::string_view> words) {
  report_columns_t columns;
  for (std::string_view word : words) {
    report_column_t &column = columns.emplace_back();
    column.rc_mr = rptdata_find(table(), word);
    column.rc_width = static_cast<std::int32_t>(column.rc_mr->mr_width);
  }
  return columns;
}

rpt_settings_t settings_of(rpt_form form, const char *spec, captured_stream &stream,
                           bool linear = false) {
  rpt_settings_t settings;
  settings.form = form;
  if (spec != nullptr) settings.spec = spec;
  settings.linear = linear;
  settings.table = table();
  settings.stream = stream.file();
  return settings;
}

// Prints the header, rows of values (one a column that has one) and the trailer.
std::string print_report(rpt_form form, const char *spec, report_columns_t columns,
                         const std::vector<std::vector<std::string>> &rows) {
  captured_stream stream;
  {
    rpt_writer writer(settings_of(form, spec, stream), columns);
    for (const auto &values : rows) {
      writer.rpt_print_header();
      std::size_t next = 0;
      writer.rpt_print_row([&](const report_column_t &, char *buffer, std::size_t room) {
        const std::string &value = values[next++];
        EXPECT_LT(value.size(), room);
        std::memcpy(buffer, value.c_str(), value.size() + 1);
        return value.size();
      });
      EXPECT_EQ(next, values.size());
    }
    writer.rpt_print_trailer();
  }
  return stream.take();
}

TEST(sinks, tabular_and_delimited_and_printf) {
  const report_columns_t three = columns_of({"name", "%used", "savetime", "newline"});
  const report_columns_t two = columns_of({"name", "newline"});
  struct {
    int line;
    rpt_form form;
    const char *spec;
    report_columns_t columns;
    std::vector<std::vector<std::string>> rows;
    const char *text;
  } rows[] = {
      {__LINE__,
       RPT_FORM_NONE,
       nullptr,
       three,
       {{"a", "50%", "1/2"}, {" b", "full", ""}},
       " name % used date\na        50%   1/2\n b      full      \n"},
      {__LINE__, RPT_FORM_NONE, nullptr, two, {{"a"}, {"b"}}, "a\nb\n"},
      {__LINE__, RPT_FORM_NONE, nullptr, three, {}, ""},
      {__LINE__,
       RPT_FORM_DELIMITED,
       ",",
       three,
       {{"a", " 5 0 ", "\t1/2\n"}, {"", "x", ""}},
       "name,percent-used,date-time\na,5 0,1/2\n,x,\n"},
      {__LINE__,
       RPT_FORM_DELIMITED,
       ",,",
       three,
       {{"a", "b", "c"}, {"", " ", "\t"}},
       "name,,percent-used,,date-time\na,,b,,c\n"},
      {__LINE__, RPT_FORM_DELIMITED, ",", two, {{"a"}, {""}}, "a\n"},
      // Spaces and line ends are no values.
      {__LINE__,
       RPT_FORM_DELIMITED,
       ";",
       columns_of({"name", "space", "space", "newline"}),
       {{"a"}},
       "name\na\n"},
      {__LINE__,
       RPT_FORM_PRINTF,
       "%s=%s (%s) 100%%\n",
       three,
       {{"a", " b", ""}, {"%d", "%%", "%s"}},
       "name=percent-used (date-time) 100%\na=b () 100%\n%d=%% (%s) 100%\n"},
      {__LINE__, RPT_FORM_PRINTF, "<%s>", two, {{"a"}, {" "}, {"c"}}, "<a><><c>"},
      {__LINE__, RPT_FORM_PRINTF, "%s%", two, {{"a"}}, "a%"},
      {__LINE__, RPT_FORM_QUIET, "", three, {{"a", "b", "c"}}, ""},
      {__LINE__, RPT_FORM_QUIET, "%s", two, {{"a"}}, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(print_report(row.form, row.spec, row.columns, row.rows), row.text);
  }
}

TEST(sinks, xml) {
  const std::string prolog =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE reelscan-tabular-report [\n"
      "<!ELEMENT result (field*)>\n"
      "<!ELEMENT field (blevel | date-time | name | newline | percent-used | space | span)>\n"
      "<!ELEMENT blevel (level-field)>\n"
      "<!ELEMENT date-time (time-field)>\n"
      "<!ELEMENT name (string-field)>\n"
      "<!ELEMENT newline (string-field)>\n"
      "<!ELEMENT percent-used (number-field)>\n"
      "<!ELEMENT space (string-field)>\n"
      "<!ELEMENT span (#PCDATA)>\n"
      "<!ELEMENT boolean-field (#PCDATA)>\n"
      "<!ELEMENT bytes-field (#PCDATA)>\n"
      "<!ELEMENT id-field (#PCDATA)>\n"
      "<!ELEMENT kilobytes-field (#PCDATA)>\n"
      "<!ELEMENT level-field (#PCDATA)>\n"
      "<!ELEMENT number-field (#PCDATA)>\n"
      "<!ELEMENT string-field (#PCDATA)>\n"
      "<!ELEMENT time-field (#PCDATA)>\n"
      "]>\n\n<reelscan-tabular-report>\n";
  // One column and its line end: the prolog does not ask for three.
  EXPECT_EQ(print_report(RPT_FORM_XML, "", columns_of({"name", "newline"}),
                         {{" a&b <\"'> "}, {""}, {"gr\xfcn"}, {"日本"}}),
            prolog +
                "<result>\n<name>a&amp;b &lt;&quot;&apos;&gt;</name>\n</result>\n"
                "<result>\n<name>grün</name>\n</result>\n"
                "<result>\n<name>日本</name>\n</result>\n"
                "</reelscan-tabular-report>\n");
  EXPECT_EQ(print_report(RPT_FORM_XML, "", columns_of({"name", "%used"}), {{"a", " "}, {" ", "b"}}),
            prolog +
                "<result>\n<name>a</name>\n</result>\n"
                "<result>\n<percent-used>b</percent-used>\n</result>\n"
                "</reelscan-tabular-report>\n");
}

TEST(sinks, a_text_of_the_locale) {
  // The "C" locale counts as ISO8859-1.
  EXPECT_EQ(print_report(RPT_FORM_NONE, nullptr, columns_of({"name", "newline"}), {{"grün 日"}}),
            "gr\xfcn ?\n");
  EXPECT_EQ(print_report(RPT_FORM_DELIMITED, ",", columns_of({"name"}), {{"grün"}}), "gr\xfcn\n");
}

TEST(sinks, values_above_a_message_are_cut) {
  std::string value(20000, 'v');
  std::string text =
      print_report(RPT_FORM_DELIMITED, "--", columns_of({"name", "%used"}), {{value, value}});
  EXPECT_EQ(text.size(), 18431 + 18431 + 1u);
  EXPECT_EQ(rptout_message_part("aü", 2), "a");
}

TEST(sinks, a_printf_string_must_match_the_columns) {
  auto run = [](const char *spec, report_columns_t columns) {
    print_report(RPT_FORM_PRINTF, spec, std::move(columns), {{"a", "b"}});
  };
  EXPECT_EXIT(run("%s", columns_of({"name", "%used"})), testing::ExitedWithCode(1),
              "127:.*: query result has 2 args, but -x printf-spec has only 1\n");
  EXPECT_EXIT(run("%s%s%s", columns_of({"name", "%used"})), testing::ExitedWithCode(1),
              "126:.*: -x printf-spec has 3 args, but query result has only 2\n");
  // The header is checked like any row, before the first record.
  EXPECT_EXIT(run("%s", columns_of({"name", "%used", "newline"})), testing::ExitedWithCode(1),
              "has 2 args");
}

TEST(export_spec, unescapes_and_checks) {
  struct {
    int line;
    std::string_view argument;
    int result;
    std::string_view spec;
  } rows[] = {
      {__LINE__, "c,", -1, ","},
      {__LINE__, "c\\t", -1, "\t"},
      {__LINE__, "p%s\\n", -1, "%s\n"},
      {__LINE__, "p\\\\\\b\\f\\r\\v", -1, "\\\b\f\r\v"},
      {__LINE__, "p\\q\\%s", -1, "\\q\\%s"},
      {__LINE__, "pend\\", -1, "end"},
      {__LINE__, "c%", -1, "%"},
      {__LINE__, "p%%%s", -1, "%%%s"},
      {__LINE__, "p%s %d", 5, "%s %"},
      {__LINE__, "m%5s", 2, "%"},
      {__LINE__, "c\\%d", 3, "\\%"},
      {__LINE__, "q", -1, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string spec = "old";
    EXPECT_EQ(rpt_check_spec(row.argument, spec), row.result);
    EXPECT_EQ(spec, row.spec);
  }
  std::vector<std::string> pieces;
  EXPECT_EQ(rpt_split_printf("a%%%s b%s", pieces), 2u);
  EXPECT_EQ(pieces, (std::vector<std::string>{"a%%%s", " b%s"}));
  EXPECT_EQ(rpt_split_printf("a%s end%", pieces), 1u);
  EXPECT_EQ(pieces, (std::vector<std::string>{"a%s", " end%"}));
  EXPECT_EQ(rpt_split_printf("", pieces), 0u);
  EXPECT_TRUE(pieces.empty());
}

TEST(linear, text_as_messages_is_cut) {
  captured_stream stream;
  auto out = rptout_create({}, RPT_FORM_NONE, true, stream.file());
  rptout_print(*out, std::string(20000, 'x'));
  rptout_print(*out, {});
  rptout_end_row(*out);
  EXPECT_EQ(stream.take().size(), 18431u);
}

// The first row decides the columns; texts go with their row.
TEST(linear, columns_and_texts) {
  rpt_t report = rpt_create(table());
  EXPECT_EQ(rpt_add_value(report, "name", "12"), 0);
  EXPECT_EQ(rpt_add_text(report, "--"), 0);
  EXPECT_EQ(rpt_add_value(report, "name", "345"), 0);   // replaces
  EXPECT_EQ(rpt_add_value(report, "unknown", "x"), 0);  // a word outside the table is text
  EXPECT_EQ(rpt_find_column(report, "name")->rc_width, 3);
  EXPECT_EQ(rpt_find_column(report, "NAME"), nullptr);
  EXPECT_TRUE(rpt_lock_width(report));
  EXPECT_FALSE(rpt_lock_width(report));
  rpt_clear_values(report);
  ASSERT_EQ(report.columns.size(), 1u);
  errno = 0;
  EXPECT_EQ(rpt_add_value(report, "savetime", "1"), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(rpt_add_text(report, "end\n"), 0);
}

}  // namespace
}  // namespace qvr
