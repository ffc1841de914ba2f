// The layout of lines, worked out by hand: columns and values in, lines out.
#include "layout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <string>

#include "report_fixture.h"

namespace qvr {
namespace {

struct column_row_t {
  rpt_type type;
  std::int32_t width;
  std::string text;  // the value, or the title
  std::string short_title = "";
};

constexpr rpt_type SPACE = rpt_type{100}, NEWLINE = rpt_type{101};

// The columns of a case, with the fields that they point to.
struct columns_t {
  explicit columns_t(const std::vector<column_row_t> &rows) {
    for (const column_row_t &row : rows) {
      fields.push_back(row.type == SPACE ? make_space_field()
                       : row.type == NEWLINE
                           ? make_newline_field()
                           : make_field("k", row.type, row.text, "", row.short_title));
      report_column_t &column = list.emplace_back();
      column.rc_mr = &fields.back();
      column.rc_width = row.width;
    }
  }
  std::list<mr_t> fields;
  report_columns_t list;
};

std::string lay_out_row(const std::vector<column_row_t> &rows) {
  columns_t columns(rows);
  rpt_layout layout;
  std::string text;
  auto cell = [&](const report_column_t &column, char *buffer, std::size_t room) {
    const std::string &value = rows[static_cast<std::size_t>(&column - columns.list.data())].text;
    std::size_t size = std::min(value.size(), room - 1);
    std::memcpy(buffer, value.data(), size);
    buffer[size] = '\0';
    return size;
  };
  auto line = [&](std::string_view part, const report_column_t &, std::size_t empty_lines) {
    text.append(part) += '\n';
    text.append(empty_lines, '\n');
  };
  layout.row(columns.list, cell, line);
  return text;
}

TEST(layout, rows) {
  struct {
    int line;
    std::vector<column_row_t> columns;
    const char *text;
  } rows[] = {
      {__LINE__, {{RPT_STRING, 5, "ab"}, {RPT_NUMBER, 6, "42"}, {NEWLINE, 1, ""}}, "ab       42\n"},
      // An overrun takes its room from the columns behind it, down to one blank.
      {__LINE__,
       {{RPT_STRING, 3, "abcdef"}, {RPT_NUMBER, 6, "42"}, {NEWLINE, 1, ""}},
       "abcdef 42\n"},
      {__LINE__,
       {{RPT_STRING, 3, "abcdefgh"}, {RPT_NUMBER, 6, "42"}, {RPT_STRING, 4, "x"}, {NEWLINE, 1, ""}},
       "abcdefgh 42 x\n"},
      {__LINE__,
       {{RPT_STRING, 3, "abcdef"}, {RPT_STRING, 9, "x"}, {RPT_NUMBER, 3, "7"}, {NEWLINE, 1, ""}},
       "abcdef x      7\n"},
      // A value that begins with a blank needs no other.
      {__LINE__,
       {{RPT_STRING, 3, "abcdef"}, {RPT_STRING, 4, " x"}, {NEWLINE, 1, ""}},
       "abcdef x\n"},
      {__LINE__, {{RPT_STRING, 2, "ab"}, {RPT_STRING, 4, "x"}, {NEWLINE, 1, ""}}, "ab x\n"},
      // A right-aligned first value that overruns hands nothing on; a left-aligned one does.
      {__LINE__,
       {{RPT_NUMBER, 2, "12345"}, {RPT_STRING, 4, "x"}, {RPT_STRING, 1, "y"}, {NEWLINE, 1, ""}},
       "12345 x  y\n"},
      {__LINE__,
       {{RPT_STRING, 2, "12345"}, {RPT_STRING, 4, "x"}, {RPT_STRING, 1, "y"}, {NEWLINE, 1, ""}},
       "12345 x y\n"},
      {__LINE__,
       {{RPT_STRING, 2, "ab"}, {SPACE, 4, ""}, {RPT_NUMBER, 3, "7"}, {NEWLINE, 1, ""}},
       "ab      7\n"},
      {__LINE__,
       {{SPACE, 2, ""}, {RPT_STRING, 2, "ab"}, {SPACE, 9, ""}, {NEWLINE, 1, ""}},
       "  ab\n"},
      {__LINE__, {{RPT_TIME, 9, "01/02/03"}, {NEWLINE, 1, ""}}, " 01/02/03\n"},
      // Alignment counts bytes, what is carried on counts cells.
      {__LINE__, {{RPT_STRING, 6, "grün"}, {RPT_NUMBER, 3, "1"}, {NEWLINE, 1, ""}}, "grün    1\n"},
      {__LINE__, {{RPT_TIME, 6, "grün"}, {RPT_NUMBER, 2, "7"}, {NEWLINE, 1, ""}}, " grün  7\n"},
      {__LINE__, {{RPT_STRING, 5, "日本"}, {RPT_ID, 2, "x"}, {NEWLINE, 1, ""}}, "日本 x\n"},
      // Empty values.
      {__LINE__, {{RPT_STRING, 4, ""}, {RPT_STRING, 1, "b"}, {NEWLINE, 1, ""}}, "    b\n"},
      {__LINE__,
       {{RPT_STRING, 3, "abc"}, {RPT_FLAGS, 2, ""}, {RPT_ID, 1, "z"}, {NEWLINE, 1, ""}},
       "abc  z\n"},
      {__LINE__, {{RPT_STRING, 3, "abc"}, {RPT_STRING, 9, ""}, {NEWLINE, 1, ""}}, "abc \n"},
      // At the end of a line too they are aligned, where room that is only owed goes.
      {__LINE__, {{RPT_STRING, 6, "abc"}, {RPT_STRING, 9, ""}, {NEWLINE, 1, ""}}, "abc   \n"},
      {__LINE__, {{RPT_STRING, 6, "abc"}, {NEWLINE, 1, ""}}, "abc\n"},
      // A line end of width 3 leaves two empty lines; a new line owes nothing.
      {__LINE__,
       {{RPT_STRING, 1, "long"}, {NEWLINE, 3, ""}, {RPT_NUMBER, 3, "1"}, {NEWLINE, 1, ""}},
       "long\n\n\n  1\n"},
      {__LINE__, {{NEWLINE, 2, ""}}, "\n\n"},
      {__LINE__, {{RPT_STRING, 4, "never ended"}}, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(lay_out_row(row.columns), row.text);
  }
}

TEST(layout, headers) {
  struct {
    int line;
    std::vector<column_row_t> columns;
    const char *text;
    std::vector<std::int32_t> widths;
  } rows[] = {
      {__LINE__,
       {{RPT_STRING, 8, "name"}, {RPT_TIME, 9, "date"}, {RPT_NUMBER, 6, "size"}, {NEWLINE, 1, ""}},
       " name     date     size\n",
       {8, 9, 6, 1}},
      // An odd rest stands behind a centred title.
      {__LINE__,
       {{RPT_TIME, 5, "ab"}, {RPT_ID, 4, "id"}, {NEWLINE, 1, ""}},
       " ab  id\n",
       {5, 4, 1}},
      // The short title, for a narrow column and for a line that has run ahead.
      {__LINE__,
       {{RPT_STRING, 4, "long name", "lng"}, {RPT_NUMBER, 6, "size", "sz"}, {NEWLINE, 1, ""}},
       " lng  size\n",
       {4, 6, 1}},
      {__LINE__,
       {{RPT_STRING, 3, "abcd"}, {RPT_NUMBER, 6, "size", "sz"}, {NEWLINE, 1, ""}},
       " abcd  sz\n",
       {3, 6, 1}},
      // Overruns of a whole width double it, as often as it takes, up to 127.
      {__LINE__, {{RPT_STRING, 5, "abcdefghij"}, {NEWLINE, 1, ""}}, " abcdefghij\n", {10, 1}},
      {__LINE__, {{RPT_STRING, 2, "abcdefghij"}, {NEWLINE, 1, ""}}, " abcdefghij\n", {8, 1}},
      {__LINE__,
       {{RPT_STRING, 5, " abcdefghi"}, {RPT_ID, 2, "z"}, {NEWLINE, 1, ""}},
       " abcdefghi z\n",
       {10, 2, 1}},
      {__LINE__,
       {{SPACE, 3, ""},
        {RPT_NUMBER, 3, "n"},
        {SPACE, 3, ""},
        {RPT_FLAGS, 3, "f"},
        {NEWLINE, 2, ""}},
       "     n   f\n",
       {3, 3, 3, 3, 2}},
      {__LINE__, {{RPT_NUMBER, 0, "n"}, {NEWLINE, 1, ""}}, " n\n", {0, 1}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    columns_t columns(row.columns);
    rpt_layout layout;
    std::string text;
    auto line = [&](std::string_view part, const report_column_t &, std::size_t empty_lines) {
      EXPECT_EQ(empty_lines, 0u);
      text.append(part) += '\n';
    };
    layout.header(columns.list, line);
    EXPECT_EQ(text, row.text);
    for (std::size_t i = 0; i < row.widths.size(); i++) {
      EXPECT_EQ(columns.list[i].rc_width, row.widths[i]) << i;
    }
  }
}

TEST(layout, long_lines_break_at_a_column) {
  std::vector<column_row_t> columns(40, {RPT_STRING, 10, std::string(1024, 'v')});
  columns.push_back({NEWLINE, 1, ""});
  std::string text = lay_out_row(columns);
  EXPECT_EQ(std::count(text.begin(), text.end(), 'v'), 40 * 1024);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
  // 31 values: with the 32nd the line would reach its buffer's end.
  EXPECT_EQ(text.find('\n'), 31 * 1024 + 30u);

  // So do values that are wider than their type lets expect.
  columns.assign(50, {RPT_NUMBER, 10, std::string(1000, 'n')});
  columns.push_back({NEWLINE, 1, ""});
  text = lay_out_row(columns);
  EXPECT_EQ(std::count(text.begin(), text.end(), 'n'), 50 * 1000);

  // Owed blanks that exceed the buffer stay inside it.
  columns.assign(200, {SPACE, 255, ""});
  columns.push_back({RPT_STRING, 10, "value"});
  columns.push_back({NEWLINE, 1, ""});
  text = lay_out_row(columns);
  EXPECT_EQ(text.substr(text.size() - 6), "value\n");
  EXPECT_LE(text.size(), RPT_LINE_SIZE + 1);
}

}  // namespace
}  // namespace qvr
