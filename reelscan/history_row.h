// One line of the history report.
#pragma once

#include <string>

#include "cells.h"
#include "columns.h"
#include "history_lookup.h"
#include "records.h"

namespace qvr {

inline constexpr std::size_t HISTORY_LINE_SIZE = 32768;  // with its terminating NUL

// What the lines of a report share. The lists are null in a report that shows change records alone.
struct history_lines_t {
  const report_columns_t &columns;
  cell_renderer &cells;
  const sorted_save_sets *fetched = nullptr;
  const sorted_save_sets *rebuilt = nullptr;
};

// The titles of all columns. Lines end in a newline and hold at most HISTORY_LINE_SIZE - 1 bytes.
std::string history_header(const report_columns_t &columns);
// The fields of one change record; empty for a record that prints nothing.
std::string history_line(const history_lines_t &lines, const hist &record);

}  // namespace qvr
