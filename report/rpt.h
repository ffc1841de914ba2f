// A report: its columns and the field table that they come from.
#pragma once

#include <string_view>

#include "columns.h"

namespace qvr {

// The columns of a linear report grow while its first row is filled in, and are then locked. A
// report belongs to one thread. A view without data (std::string_view{}) stands for no keyword and
// no value.
struct rpt_t {
  report_columns_t columns;
  field_table table;
  bool locked = false;
};

rpt_t rpt_create(field_table table);

// Sets the value of a column for the row that is being filled in, and appends the column when it is
// new. Without a keyword the column is text only and always new. 0, or -1 with errno EACCES for a
// new keyword in a locked report: the value is dropped and the caller goes on.
int rpt_add_value(rpt_t &report, std::string_view keyword, std::string_view text);
int rpt_add_text(rpt_t &report, std::string_view text);

// The first column of that keyword, byte by byte; null when there is none.
report_column_t *rpt_find_column(rpt_t &report, std::string_view keyword);

// Ends a row: values go, and so do the columns that have no field.
void rpt_clear_values(rpt_t &report);

// True the first time, which decides the columns; false from then on.
bool rpt_lock_width(rpt_t &report);

}  // namespace qvr
