#include "plan_request.h"

#include <algorithm>

#include "dates.h"
#include "plan_needs.h"
#include "ss_flags.h"

namespace qvr {

namespace {

constexpr std::int64_t NARROW_PERIOD = 7776000;  // 90 days
constexpr std::size_t LONG_ANNOTATION = 20;

const query_constraint_t *find(const query_constraints_t &constraints, int code) {
  for (const query_constraint_t &qc : constraints) {
    if (qc.qc_mr->mr_id == code) return &qc;
  }
  return nullptr;
}

void carry(const query_constraints_t &constraints, int code, plan_t &plan) {
  for (std::size_t i = 0; i < constraints.size(); i++) {
    if (constraints[i].qc_mr->mr_id == code) plan.carried[i] = true;
  }
}

// Takes the text over when the request can carry it.
bool take(const query_constraints_t &constraints, int code, std::optional<std::string> &to,
          plan_t &plan) {
  const std::string *text = sent_text(constraints, code);
  if (text == nullptr) return false;
  to = *text;
  carry(constraints, code, plan);
  return true;
}

void take_bounds(const query_constraints_t &constraints, plan_t &plan) {
  const query_constraint_t *qc = find(constraints, CODE_SAVETIME);
  if (qc == nullptr) return;
  if ((qc->qc_cmp & QC_LOWER) != 0) plan.request.from = static_cast<std::int64_t>(qc->qc_lo);
  if ((qc->qc_cmp & QC_UPPER) != 0) plan.request.to = static_cast<std::int64_t>(qc->qc_hi);
}

// The level limit plus 1; 0 when the request cannot say it.
std::int32_t level_limit(query_constraint_t &qc) {
  if (is_single(qc) && qc.qc_lo == 0) {
    qc.qc_cmp |= QC_UPPER;
    qc.qc_hi = 0;
  }
  if ((qc.qc_cmp & QC_UPPER) == 0) return 0;
  auto limit = static_cast<std::int64_t>(qc.qc_hi);
  return limit < 0 ? 0 : static_cast<std::int32_t>(limit + 1);
}

void take_level(query_constraints_t &constraints, plan_t &plan) {
  for (std::size_t i = 0; i < constraints.size(); i++) {
    if (constraints[i].qc_mr->mr_id != CODE_LEVEL) continue;
    plan.request.level = level_limit(constraints[i]);
    plan.carried[i] = plan.request.level > 0 && (constraints[i].qc_cmp & QC_LOWER) == 0;
  }
}

bool is_narrow(const plan_request_t &request, std::int64_t now) {
  if (!request.from) return false;
  std::int64_t to = request.to.value_or(now);
  std::int64_t span;
  return !__builtin_sub_overflow(to, *request.from, &span) && span <= NARROW_PERIOD;
}

int attribute_score(const query_constraints_t &constraints, const plan_request_t &request,
                    std::int64_t now) {
  int score = request.name ? 1 : 0;
  if (request.client) score = 2;
  if (sent_text(constraints, CODE_GROUP) != nullptr) score++;
  if (const std::string *annotation = sent_text(constraints, CODE_ANNOTATION)) {
    score++;
    if (annotation->size() >= LONG_ANNOTATION) score++;
    if (is_narrow(request, now)) score++;
  } else if (request.from || request.to) {
    score = 2;
  }
  if (request.level == 1) score++;
  return score;
}

struct attribute_row_t {
  int code;
  const char *attribute;
  bool selective;  // enough for the request by attributes, whatever the columns
};
constexpr attribute_row_t attribute_rows[] = {
    {CODE_GROUP, "group", false},
    {CODE_BUNDLE, "save set bundle", true},
    {CODE_CHECKPOINT_ID, "*checkpoint_id", true},
    {CODE_CHECKPOINT_SEQ, "*checkpoint_seq", true},
};

bool has_selective_text(const query_constraints_t &constraints) {
  if (sent_text(constraints, CODE_ANNOTATION) != nullptr) return true;
  return std::any_of(std::begin(attribute_rows), std::end(attribute_rows), [&](const auto &row) {
    return row.selective && sent_text(constraints, row.code) != nullptr;
  });
}

bool asks_deviceless(const query_constraints_t &constraints) {
  const query_constraint_t *qc = find(constraints, CODE_DEVICELESS);
  return qc != nullptr && qc->qc_hi != 0;
}

bool asks_snap(const query_constraints_t &constraints) {
  const query_constraint_t *qc = find(constraints, CODE_SAVE_SET_FLAGS);
  return qc != nullptr && (qc->qc_hi & SS_SNAP) != 0;
}

void fill_page(const query_constraints_t &constraints, plan_t &plan) {
  plan_request_t &request = plan.request;
  request.kind = request_kind::ss_page;
  carry(constraints, CODE_SAVETIME, plan);
  for (const attribute_row_t &row : attribute_rows) {
    const std::string *text = sent_text(constraints, row.code);
    if (text == nullptr) continue;
    attrlist_add(request.attrs, row.attribute, *text);
    carry(constraints, row.code, plan);
  }
  if (const std::string *text = sent_text(constraints, CODE_ANNOTATION)) {
    attrlist_add(request.filter, "annotation", *text);
    carry(constraints, CODE_ANNOTATION, plan);
  }
  if (asks_deviceless(constraints)) {
    attrlist_add(request.attrs, "Deviceless backup", "Yes");
    carry(constraints, CODE_DEVICELESS, plan);
  }
}

void fill_query(const query_constraints_t &constraints, plan_t &plan) {
  plan.request.kind = request_kind::ss_query;
  carry(constraints, CODE_SAVETIME, plan);
  // This request takes a level as a hint.
  for (std::size_t i = 0; i < constraints.size(); i++) {
    if (constraints[i].qc_mr->mr_id == CODE_LEVEL) plan.carried[i] = false;
  }
}

}  // namespace

const std::string *sent_text(const query_constraints_t &constraints, int code) {
  const query_constraint_t *qc = find(constraints, code);
  if (qc == nullptr || !is_single(*qc) || qc->values.empty() || qc->values.front().empty()) {
    return nullptr;
  }
  return &qc->values.front();
}

bool plan_attribute_request(const plan_facts_t &facts, query_constraints_t &constraints,
                            plan_t &plan) {
  needs_t &needs = plan.needs;
  take(constraints, CODE_NAME, plan.request.name, plan);
  take(constraints, CODE_CLIENT, plan.request.client, plan);
  take_bounds(constraints, plan);
  take_level(constraints, plan);

  plan.score = attribute_score(constraints, plan.request, facts.now);
  if (asks_deviceless(constraints) || asks_snap(constraints)) {
    needs.volume = needs.fragment_rows = needs.clone_test = false;
  }
  const bool save_sets_alone = !needs.volume && !needs.fragment_rows && !needs.clone_test;
  if (save_sets_alone) plan.score += 2;

  bool by_page = needs.save_set || save_sets_alone || has_selective_text(constraints);
  bool by_name = !plan.request.to;
  if (plan.score <= 1 || (!by_page && !by_name)) {
    plan.request = {};
    plan.carried.assign(constraints.size(), false);
    return false;
  }
  if (by_page)
    fill_page(constraints, plan);
  else
    fill_query(constraints, plan);
  needs.detail |= needs.volume || asks_volumes(constraints);
  plan.request.full = needs.detail;
  return true;
}

void plan_key_request(const query_constraints_t &constraints, plan_t &plan) {
  plan_request_t &request = plan.request;
  request.full = plan.needs.detail;
  const query_constraint_t *key = find(constraints, plan.plan_key);
  carry(constraints, plan.plan_key, plan);
  if (plan.plan_key == CODE_SSID) {
    request.kind = request_kind::ss_ids;
    std::int64_t cloneid;
    ssid_parse(first_text(*key), request.ssid, &cloneid);
    return;
  }
  request.kind = request_kind::ss_times;
  request.from = request.to = static_cast<std::int64_t>(key->qc_lo);
  const query_constraint_t *client = find(constraints, CODE_CLIENT);
  if (client == nullptr) return;
  for (const std::string &text : client->values) {
    // An empty name cannot be asked for; then every client is, and the test decides.
    if (text.empty()) {
      request.clients.clear();
      return;
    }
    request.clients.push_back(text);
  }
  carry(constraints, CODE_CLIENT, plan);
}

namespace {

struct volume_request_row_t {
  int key;
  request_kind kind;
  bool full_with_save_sets;
};
constexpr volume_request_row_t volume_request_rows[] = {
    {CODE_LOCATION, request_kind::vols_location, false},
    {CODE_FAMILY, request_kind::vols_family, false},
    {CODE_TYPE, request_kind::vols_family, false},
    {CODE_POOL, request_kind::vols_pool, false},
    {CODE_VOLUME_FLAGS, request_kind::vols_pool, false},
    {CODE_VOLUME, request_kind::vols_name, true},
    {CODE_BARCODE, request_kind::vols_barcode, true},
    {CODE_VOLID, request_kind::vol_id_list, true},
};

struct volume_text_row_t {
  int code;
  std::optional<std::string> plan_request_t::*to;
};
constexpr volume_text_row_t volume_text_rows[] = {
    {CODE_LOCATION, &plan_request_t::location}, {CODE_FAMILY, &plan_request_t::family},
    {CODE_TYPE, &plan_request_t::type},         {CODE_POOL, &plan_request_t::pool},
    {CODE_VOLUME, &plan_request_t::volume},     {CODE_BARCODE, &plan_request_t::barcode},
};

}  // namespace

void plan_volume_request(const query_constraints_t &constraints, plan_t &plan) {
  plan_request_t &request = plan.request;
  const volume_request_row_t *chosen = nullptr;
  for (const volume_request_row_t &row : volume_request_rows) {
    if (row.key == plan.plan_key) chosen = &row;
  }
  if (chosen != nullptr && chosen->key == CODE_LOCATION &&
      sent_text(constraints, CODE_LOCATION) == nullptr) {
    chosen = nullptr;
  }
  if (chosen == nullptr) {
    plan.plan_key = 0;
    return;
  }
  request.kind = chosen->kind;
  request.full = chosen->full_with_save_sets && plan.needs.save_set;
  for (const volume_text_row_t &row : volume_text_rows) {
    take(constraints, row.code, request.*row.to, plan);
  }
  if (const query_constraint_t *flags = find(constraints, CODE_VOLUME_FLAGS)) {
    request.flag_mask = static_cast<std::uint32_t>(flags->qc_lo);
    request.flag_value = static_cast<std::uint32_t>(flags->qc_hi);
    carry(constraints, CODE_VOLUME_FLAGS, plan);
  }
  if (const std::string *text = sent_text(constraints, CODE_VOLID)) {
    volid_parse(*text, request.volid);
    carry(constraints, CODE_VOLID, plan);
  }
}

}  // namespace qvr
