// What a field code says of the records that it needs.
#pragma once

#include "columns.h"
#include "constraint.h"
#include "plan.h"

namespace qvr {

constexpr bool is_volume_code(int code) {
  return code > 0 && code % 2 == 0;
}
constexpr bool is_save_set_code(int code) {
  return code > 0 && code % 2 != 0;
}

// Adds what the field needs below the save set.
void add_detail_needs(int code, needs_t &needs);
needs_t report_needs(const plan_facts_t &facts, const report_columns_t &columns);

// True when the query asks for something of a volume, by which each fragment is tested.
bool asks_volumes(const query_constraints_t &constraints);

// How rows are formed, from columns, constraints and order.
void plan_rows(const plan_facts_t &facts, const query_constraints_t &constraints,
               const report_columns_t &columns, plan_t &plan);

}  // namespace qvr
