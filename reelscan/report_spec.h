// The report language: which columns, how wide.
#pragma once

#include <string_view>

#include "columns.h"

namespace qvr {

// Reads a list of columns, as behind -r, and appends them. Null, or the text of the refusal, as for
// parse_query_spec(). A null text (data() == nullptr) adds nothing; an empty one is no column's
// word.
const char *parse_report_spec(std::string_view text, report_columns_t &columns);

// Appends the `newline` that ends the lines of a table, unless there is one or there are no
// columns.
void close_report(report_columns_t &columns);

}  // namespace qvr
