#include "history_report.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "client_identity.h"
#include "debug_words.h"
#include "format.h"
#include "history_lookup.h"
#include "history_query.h"
#include "history_row.h"
#include "msg.h"
#include "number_text.h"
#include "queries.h"
#include "session.h"

namespace qvr {

namespace {

constexpr std::int16_t CHANGES = 123, CLONEID = 11;
constexpr std::size_t BATCH = 500;  // ids that one call carries

// What the columns ask for.
struct history_kind_t {
  const report_column_t *changes = nullptr;  // the count of changes
  bool save_set_fields = false;              // a field that only the save set has
};

history_kind_t kind_of(const report_columns_t &columns) {
  history_kind_t kind;
  for (const report_column_t &column : columns) {
    std::int16_t code = column.rc_mr->mr_id;
    if (code == CHANGES) {
      kind.changes = &column;
      return kind;
    }
    if (code > 0 && code % 2 == 1 && code < 105 && code != CLONEID) kind.save_set_fields = true;
  }
  return kind;
}

// The session's error, kept beyond later calls.
class kept_error {
 public:
  void look() {
    errobj_t *error = mif_last_error();
    if (error != nullptr && !error_) error_ = *error;
  }
  // Prints it, behind what standard output holds; the exit status of the report.
  int status() {
    if (!error_) return 0;
    std::fflush(stdout);
    err_print(&*error_);
    return 1;
  }

 private:
  std::optional<errobj_t> error_;
};

void print_line(const std::string &line) {
  if (!line.empty()) fmt_to_stdout("%s", line.c_str());
}

void print_plain(const history_lines_t &lines, const hist_list &records) {
  for (const hist *record : records.rows) print_line(history_line(lines, *record));
}

void print_enriched(history_lines_t lines, const hist_list &records, kept_error &error) {
  sorted_save_sets rebuilt(rebuild_deleted(records));
  lines.rebuilt = &rebuilt;
  for (std::size_t first = 0, next = 0; first < records.size(); first = next) {
    std::vector<ksui> ids = distinct_ids(records, first, BATCH, next);
    ss_list list = fetchss_ids(ids, true);
    if (list.empty()) error.look();
    sorted_save_sets fetched(std::move(list));
    lines.fetched = &fetched;
    for (std::size_t i = first; i < next; i++) {
      print_line(history_line(lines, *records.rows[i]));
    }
  }
}

void print_records(const history_kind_t &kind, const history_lines_t &lines,
                   const hist_list &records, kept_error &error) {
  if (kind.changes != nullptr) {
    fmt_to_stdout("%s\n%s\n", kind.changes->rc_mr->mr_title.c_str(),
                  str_u64(records.rows.front()->changes));
    return;
  }
  print_line(history_header(lines.columns));
  if (kind.save_set_fields)
    print_enriched(lines, records, error);
  else
    print_plain(lines, records);
}

}  // namespace

int history_report(const settings_t &settings, request_t &request) {
  history_query_t query;
  if (!history_query(request.query_constraints, query)) {
    msg_print(198503, 55000, MSG_STDERR, "Invalid saveset identifier provided in history query\n");
    return 1;
  }
  history_kind_t kind = kind_of(request.report_columns);
  if (kind.changes != nullptr) {
    attrlist_add(query.attrs, "change count", "Yes");
    if (request.report_columns.size() > 1) {
      msg_print(198504, 51000, MSG_STDOUT,
                "Only total change count report is supported, so 'changes' report specifier "
                "should be included by itself\n");
    }
  }

  hist_list records = get_history(query);
  kept_error error;
  if (records.empty()) {
    error.look();
    msg_print(198505, 55000, MSG_STDOUT, "Received no results matching history query\n");
    return error.status();
  }
  if (kind.changes == nullptr && records.size() == HISTORY_COUNT) {
    KS_DEBUG(1, "The history holds %zu records or more.\n", records.size());
  }

  cell_renderer cells({.linear = false,
                       .client_ids = settings.very_verbose(),
                       .iso_times = settings.iso_times,
                       .old_forever = request.old_forever_shown},
                      get_client_name_from_id);
  history_lines_t lines{request.report_columns, cells};
  print_records(kind, lines, records, error);
  return error.status();
}

}  // namespace qvr
