#include "plan.h"

#include <algorithm>

#include "dates.h"
#include "plan_needs.h"
#include "plan_request.h"

namespace qvr {

namespace {

// The first constraint says what the server is asked for, as they stand strongest first.
const query_constraint_t *key_constraint(const query_constraints_t &constraints) {
  for (const query_constraint_t &qc : constraints) {
    if (qc.qc_mr->mr_id == CODE_BARCODE && !sent_text(constraints, CODE_BARCODE)) continue;
    return &qc;
  }
  return nullptr;
}

// An exact save time is its own key. The descriptor of `nsavetime` stands behind the one of
// `savetime` in the catalogue.
void ask_exact_time(query_constraints_t &constraints, plan_t &plan) {
  if (plan.plan_key == CODE_SSID) return;
  for (query_constraint_t &qc : constraints) {
    if (qc.qc_mr->mr_id != CODE_SAVETIME || !is_single(qc)) continue;
    qc.qc_mr++;
    plan.plan_key = CODE_NSAVETIME;
  }
}

void default_order(const plan_facts_t &facts, plan_t &plan) {
  if (facts.sort_order)
    plan.sort_order = *facts.sort_order;
  else if (plan.needs.fragment_rows)
    plan.sort_order = "mocntl";
  else
    plan.sort_order = plan.needs.save_set ? "mcntl" : "m";
  if (plan.sort_order.find('R') != std::string::npos) plan.sort_sign = -1;
  if (plan.sort_order.find('o') != std::string::npos) plan.needs.detail = true;
}

void add_query_needs(const query_constraints_t &constraints, needs_t &needs) {
  for (const query_constraint_t &qc : constraints) {
    int code = qc.qc_mr->mr_id;
    if (!is_save_set_code(code)) continue;
    needs.ss_constraint = true;
    needs_t of_field;
    add_detail_needs(code, of_field);
    needs.detail |= of_field.detail;
    needs.clone_test |= of_field.clone_test;
  }
}

// Rows are tested against what is asked of volumes, clones and fragments; so these must be there.
void add_late_needs(const query_constraints_t &constraints, needs_t &needs) {
  for (const query_constraint_t &qc : constraints) {
    if (is_volume_code(qc.qc_mr->mr_id)) needs.detail = true;
  }
}

plan_road volume_road(const plan_facts_t &facts, plan_t &plan) {
  const needs_t &needs = plan.needs;
  const bool save_sets = needs.save_set || needs.ss_constraint;
  plan.count_report = needs.savesets_column && !save_sets;
  if (!save_sets && !plan.count_report) return plan_road::volumes_alone;
  if (plan.sort_order.starts_with('m') && !facts.bootstrap) return plan_road::fetch_by_volume;
  plan.needs.detail = true;
  return plan_road::fetch_of_rows;
}

}  // namespace

plan_t make_plan(const plan_facts_t &facts, query_constraints_t &constraints,
                 const report_columns_t &columns) {
  plan_t plan;
  plan.needs = report_needs(facts, columns);
  if (!plan.needs.volume && !plan.needs.save_set) return plan;
  default_order(facts, plan);

  const query_constraint_t *key = key_constraint(constraints);
  plan.plan_key = key == nullptr ? 0 : key->qc_mr->mr_id;
  add_query_needs(constraints, plan.needs);
  ask_exact_time(constraints, plan);
  plan.carried.assign(constraints.size(), false);
  plan.left_out.assign(constraints.size(), false);

  bool by_attributes = false;
  const bool by_key = plan.plan_key == CODE_NSAVETIME || plan.plan_key == CODE_SSID;
  if (by_key || is_save_set_code(plan.plan_key)) add_late_needs(constraints, plan.needs);
  if (is_save_set_code(plan.plan_key) && plan.plan_key <= HIGHEST_ATTRIBUTE_KEY) {
    by_attributes = plan_attribute_request(facts, constraints, plan);
    if (!by_attributes) plan.plan_key = 0;
  }
  if (by_attributes) {
    plan.road = plan_road::key_query;
  } else if (by_key) {
    plan.road = plan_road::key_query;
    plan.needs.detail |= plan.needs.volume || asks_volumes(constraints);
    plan_key_request(constraints, plan);
  } else {
    plan_volume_request(constraints, plan);
    plan.road = volume_road(facts, plan);
  }
  if (!by_attributes) plan_left_out(constraints, plan);
  plan_rows(facts, constraints, columns, plan);
  return plan;
}

}  // namespace qvr
