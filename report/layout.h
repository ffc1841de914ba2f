// How the columns of a tabular report stand on a line.
//
// The line is elastic: columns are aligned as long as values fit, a value that overruns takes the
// room from the columns behind it, and two values are always apart by a blank unless the second
// begins with one. What a line owes at its end is not written, but an empty last value is aligned
// like any other, so that a row may end in blanks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "columns.h"
#include "function_view.h"

namespace qvr {

// Writes the text of a cell to the buffer, at most `room` bytes with its NUL, and returns its
// length in bytes. What a row holds is the caller's: it stands in the function.
using rpt_cell_fn =
    function_view<std::size_t(const report_column_t &column, char *buffer, std::size_t room)>;

// Takes a line without its end, the column at which it ended, and the number of empty lines that
// follow it.
using rpt_line_fn = function_view<void(std::string_view line, const report_column_t &column,
                                       std::size_t empty_lines)>;

inline constexpr std::size_t RPT_LINE_SIZE = 32768;    // line buffer of a header or a row
inline constexpr std::size_t RPT_CELL_ROOM = 1025;     // a value of a tabular row
inline constexpr std::size_t RPT_EXPORT_ROOM = 32768;  // a value of an export or linear form

// The room that a value of that type is given before the line is broken, in bytes.
std::size_t rpt_type_room(rpt_type type);

inline bool rpt_is_space(const report_column_t &column) {
  return column.rc_mr != nullptr && column.rc_mr->mr_id == RPT_SPACE_ID;
}
inline bool rpt_is_newline(const report_column_t &column) {
  return column.rc_mr != nullptr && column.rc_mr->mr_id == RPT_NEWLINE_ID;
}

// Composes in a buffer of its own; one thread.
class rpt_layout {
 public:
  // Titles; a title that overruns its column by the column's width or more doubles the width for
  // all rows.
  void header(report_columns_t &columns, rpt_line_fn line);
  void row(const report_columns_t &columns, rpt_cell_fn cell, rpt_line_fn line);

 private:
  void start_line();
  void end_line(const report_column_t &column, std::size_t empty_lines, rpt_line_fn line);
  void title(report_column_t &column, rpt_line_fn line);
  void value(const report_column_t &column, rpt_cell_fn cell, rpt_line_fn line);
  bool reaches_end(std::size_t room) const;
  std::size_t blanks_that_fit(std::int64_t wanted, std::size_t behind) const;

  std::array<char, RPT_LINE_SIZE> buffer_;
  std::size_t used_ = 0;
  std::int64_t pending_ = 0;  // cells: above 0 blanks owed, below 0 run ahead of the columns
  bool first_ = true;         // no value on the line yet
};

}  // namespace qvr
