// Which fields belong to a history query, and which to nothing else.
#include <algorithm>
#include <iterator>

#include "msg.h"
#include "query_spec.h"
#include "spec_reader.h"

namespace qvr {

namespace {

// The first four are fields of any report too.
constexpr std::string_view history_fields[] = {
    "ssid", "cloneid",  "savetime", "endtime",  "operation", "timestamp",
    "user", "property", "oldvalue", "newvalue", "validity",  "changes",
};
constexpr std::size_t shared_fields = 4;

bool belongs(std::string_view key, std::size_t from) {
  return std::any_of(std::begin(history_fields) + from, std::end(history_fields),
                     [key](std::string_view field) { return same_word(field, key); });
}

bool fits(bool history, const mr_t &field) {
  return history ? belongs(field.mr_key, 0) : !belongs(field.mr_key, shared_fields);
}

constexpr std::int32_t REFUSED = 13022;

void refuse_constraint(bool history, const mr_t &field) {
  if (history) {
    msg_print(198535, REFUSED, MSG_STDERR,
              "Field '%s' is not valid in history query (in combination with -h).\n",
              {{MSG_ARG_TEXT, field.mr_key}});
  } else {
    msg_print(198534, REFUSED, MSG_STDERR,
              "Field '%s' is only valid in history query (in combination with -h).\n",
              {{MSG_ARG_TEXT, field.mr_key}});
  }
}

void refuse_column(bool history, const mr_t &field) {
  if (history) {
    msg_print(198537, REFUSED, MSG_STDERR,
              "Field '%s' is not valid in history report (in combination with -h).\n",
              {{MSG_ARG_TEXT, field.mr_key}});
  } else {
    msg_print(198536, REFUSED, MSG_STDERR,
              "Field '%s' is only valid in history report (in combination with -h).\n",
              {{MSG_ARG_TEXT, field.mr_key}});
  }
}

}  // namespace

field_place history_field(std::string_view key) {
  if (belongs(key, shared_fields)) return field_place::history_alone;
  return belongs(key, 0) ? field_place::anywhere : field_place::reports_alone;
}

bool validate_fields(bool history, const query_constraints_t &constraints,
                     const report_columns_t &columns) {
  bool good = true;
  for (const query_constraint_t &constraint : constraints) {
    if (fits(history, *constraint.qc_mr)) continue;
    refuse_constraint(history, *constraint.qc_mr);
    good = false;
  }
  for (const report_column_t &column : columns) {
    if (fits(history, *column.rc_mr)) continue;
    refuse_column(history, *column.rc_mr);
    good = false;
  }
  return good;
}

}  // namespace qvr
