// What the server has applied is not tested again.

#include <algorithm>
#include <span>

#include "plan_request.h"

namespace qvr {

namespace {

// With this key, nodes of these codes are taken out, if `beside` is 0 or a node of it exists.
struct left_out_row_t {
  int key;
  int beside;
  int codes[2];
};
constexpr left_out_row_t left_out_rows[] = {
    {CODE_LOCATION, 0, {CODE_LOCATION, 0}},
    {CODE_FAMILY, 0, {CODE_FAMILY, CODE_TYPE}},
    {CODE_TYPE, 0, {CODE_FAMILY, CODE_TYPE}},
    {CODE_VOLUME_FLAGS, CODE_POOL, {CODE_VOLUME_FLAGS, CODE_POOL}},
    {CODE_NSAVETIME, 0, {CODE_NSAVETIME, CODE_CLIENT}},
    {CODE_SSID, 0, {CODE_SSID, 0}},
};

bool has_code(const query_constraints_t &constraints, int code) {
  return std::any_of(constraints.begin(), constraints.end(),
                     [code](const query_constraint_t &qc) { return qc.qc_mr->mr_id == code; });
}

bool may_go(const query_constraint_t &qc) {
  return qc.qc_cmp != QC_LIST && (qc.qc_cmp & QC_RANGE) == 0;
}

bool is_text(const query_constraint_t &qc) {
  return qc.qc_mr->mr_type == RPT_STRING || qc.qc_mr->mr_type == RPT_ID;
}

}  // namespace

void plan_left_out(const query_constraints_t &constraints, plan_t &plan) {
  const left_out_row_t *rule = nullptr;
  for (const left_out_row_t &row : left_out_rows) {
    if (row.key == plan.plan_key) rule = &row;
  }
  if (rule == nullptr || (rule->beside != 0 && !has_code(constraints, rule->beside))) return;
  for (std::size_t i = 0; i < constraints.size(); i++) {
    const query_constraint_t &qc = constraints[i];
    int code = qc.qc_mr->mr_id;
    bool named = code == rule->codes[0] || code == rule->codes[1];
    if (!named || !plan.carried[i] || !may_go(qc)) continue;
    plan.left_out[i] = true;
    // The first text ends it; the others are tested all the same.
    if (is_text(qc)) return;
  }
}

}  // namespace qvr
