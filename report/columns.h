// The columns of a report.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fields.h"

namespace qvr {

struct report_column_t {
  const mr_t *rc_mr = nullptr;          // null: a text-only column
  std::int32_t rc_width = 0;            // display cells; a count for space and newline
  std::optional<std::string> rc_value;  // the current row's value of a linear column
};
using report_columns_t = std::vector<report_column_t>;

}  // namespace qvr
