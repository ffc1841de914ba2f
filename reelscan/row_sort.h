// The order of rows, save sets and volumes.
//
// Keys are computed once a record, collation keys once a distinct volume, and packed into words, so
// that a comparison looks at one or two of them. The sort is stable: what is equal under the whole
// order stays as it came.
#pragma once

#include <string_view>

#include "queries.h"
#include "rows.h"

namespace qvr {

// `order` holds letters of "celmnotR"; an "R" reverses the whole.
void sort_rows(std::string_view order, rows_t &rows);
void sort_save_sets(std::string_view order, ss_list &list);
void sort_volumes(std::string_view order, vol_list &list);

}  // namespace qvr
