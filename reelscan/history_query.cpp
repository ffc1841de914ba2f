#include "history_query.h"

#include "dates.h"
#include "debug_words.h"
#include "format.h"
#include "number_text.h"

namespace qvr {

namespace {

// A field that selects change records: where its value goes, and the attribute for those that go
// into one.
struct history_field_t {
  std::int16_t code;
  bool (*take)(const query_constraint_t &, const history_field_t &, history_query_t &);
  const char *attribute = nullptr;
};

bool take_clone(const query_constraint_t &node, const history_field_t &, history_query_t &query) {
  query.clone = static_cast<std::int64_t>(node.qc_lo);
  KS_DEBUG(9, "clone id=%s\n", str_i64(query.clone));
  return true;
}

bool take_start(const query_constraint_t &node, const history_field_t &, history_query_t &query) {
  query.range.mr_start_time = node.qc_lo;
  KS_DEBUG(9, "start time=%s\n", str_u64(node.qc_lo));
  return true;
}

bool take_end(const query_constraint_t &node, const history_field_t &, history_query_t &query) {
  if ((node.qc_cmp & QC_UPPER) == 0) return true;
  query.range.mr_end_time = node.qc_hi;
  KS_DEBUG(9, "end time=%s\n", str_u64(node.qc_hi));
  return true;
}

bool take_ssid(const query_constraint_t &node, const history_field_t &, history_query_t &query) {
  KS_DEBUG(9, "ssid=%s\n", node.values.front().c_str());
  return ssid_parse(node.values.front(), query.ssid);
}

bool take_validity(const query_constraint_t &node, const history_field_t &field,
                   history_query_t &query) {
  const char *text = str_i64(static_cast<std::int64_t>(node.qc_lo));
  attrlist_add(query.attrs, field.attribute, text);
  KS_DEBUG(9, "validity=%s\n", text);
  return true;
}

bool take_texts(const query_constraint_t &node, const history_field_t &field,
                history_query_t &query) {
  for (const std::string &value : node.values) {
    attrlist_add(query.attrs, field.attribute, value);
    KS_DEBUG(9, "%s=%s\n", field.attribute, value.c_str());
  }
  return true;
}

constexpr history_field_t HISTORY_FIELDS[] = {
    {11, take_clone},
    {51, take_start},
    {107, take_start},
    {109, take_end},
    {173, take_ssid},
    {57, take_texts, "client_name"},
    {61, take_texts, "label"},
    {63, take_texts, "client_id"},
    {111, take_texts, "user"},
    {113, take_texts, "property"},
    {115, take_texts, "old_value"},
    {117, take_texts, "new_value"},
    {119, take_validity, "validity"},
    {121, take_texts, "operation"},
};

bool lacks_value(const query_constraint_t &node, const history_field_t &field) {
  bool is_text = field.take == take_texts || field.take == take_ssid;
  return is_text && node.values.empty();
}

}  // namespace

bool history_query(const query_constraints_t &constraints, history_query_t &query) {
  query.range = {0, static_cast<std::uint64_t>(TIME_FOREVER_32), HISTORY_COUNT};
  for (const query_constraint_t &node : constraints) {
    if (node.qc_mr == nullptr) {
      KS_DEBUG(1, "Invalid query input\n");
      continue;
    }
    KS_DEBUG(9, "Query condition: %s\n", std::string(node.qc_mr->mr_key).c_str());
    for (const history_field_t &field : HISTORY_FIELDS) {
      if (field.code != node.qc_mr->mr_id) continue;
      if (lacks_value(node, field))
        KS_DEBUG(1, "Invalid query input\n");
      else if (!field.take(node, field, query))
        return false;
    }
  }
  return true;
}

}  // namespace qvr
