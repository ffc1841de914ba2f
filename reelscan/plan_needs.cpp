#include "plan_needs.h"

#include <algorithm>

namespace qvr {

namespace {

// Odd codes from `first` to `last`.
struct detail_row_t {
  int first, last;
  bool clone_test, fragment_rows, each_fragment;
};
constexpr detail_row_t detail_rows[] = {
    {11, 17, true, false, false},  {19, 33, false, true, true},    {35, 37, false, true, false},
    {39, 49, false, false, false}, {67, 67, true, false, false},   {73, 73, false, false, false},
    {97, 97, true, false, false},  {101, 105, true, false, false},
};

constexpr int CODE_SAVESETS = 30, CODE_VOLID = 160, CODE_TOTAL_MACHINE = 124;
constexpr const char *ORDER_OF_SAVE_SETS = "mcntl";

bool any_volume_column(const report_columns_t &columns) {
  for (const report_column_t &column : columns) {
    if (column.rc_mr != nullptr && is_volume_code(column.rc_mr->mr_id)) return true;
  }
  return false;
}

bool any_volume_test(const query_constraints_t &constraints) {
  for (const query_constraint_t &qc : constraints) {
    if (is_volume_code(qc.qc_mr->mr_id) && qc.qc_mr->mr_id != CODE_VOLID) return true;
  }
  return false;
}

}  // namespace

void add_detail_needs(int code, needs_t &needs) {
  if (!is_save_set_code(code)) return;
  for (const detail_row_t &row : detail_rows) {
    if (code < row.first || code > row.last) continue;
    needs.detail = true;
    needs.clone_test |= row.clone_test;
    needs.fragment_rows |= row.fragment_rows;
    needs.each_fragment |= row.each_fragment;
  }
}

needs_t report_needs(const plan_facts_t &facts, const report_columns_t &columns) {
  needs_t needs;
  if (facts.linear) {
    needs.save_set = needs.detail = true;
    return needs;
  }
  if (facts.bootstrap) {
    needs.volume = needs.save_set = needs.detail = true;
    needs.fragment_rows = needs.each_fragment = true;
    return needs;
  }
  for (const report_column_t &column : columns) {
    int code = column.rc_mr == nullptr ? RPT_SPACE_ID : column.rc_mr->mr_id;
    if (code < 0) continue;
    (is_volume_code(code) ? needs.volume : needs.save_set) = true;
    needs.savesets_column |= code == CODE_SAVESETS;
    add_detail_needs(code, needs);
  }
  if (needs.volume) needs.fragment_rows = false;
  return needs;
}

bool asks_volumes(const query_constraints_t &constraints) {
  return std::any_of(constraints.begin(), constraints.end(), [](const query_constraint_t &qc) {
    return is_volume_code(qc.qc_mr->mr_id) && qc.qc_mr->mr_id != CODE_TOTAL_MACHINE;
  });
}

void plan_rows(const plan_facts_t &facts, const query_constraints_t &constraints,
               const report_columns_t &columns, plan_t &plan) {
  const bool volume_column = any_volume_column(columns);
  plan.per_fragment = plan.needs.fragment_rows;
  if (!facts.linear && plan.sort_order != ORDER_OF_SAVE_SETS) plan.per_fragment = true;
  if (volume_column) plan.per_fragment = false;
  if (facts.media_position_asked) plan.per_fragment = true;
  plan.keep_detail =
      plan.per_fragment || (!facts.linear && plan.sort_order.find('o') != std::string::npos);
  plan.volumes_needed = plan.keep_detail || volume_column || any_volume_test(constraints);
}

}  // namespace qvr
