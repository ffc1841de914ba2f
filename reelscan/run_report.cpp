#include "run_report.h"

#include <cstdio>
#include <cstring>

#include "client_identity.h"
#include "dates.h"
#include "debug_words.h"
#include "fetch_request.h"
#include "fetch_volumes.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "plan.h"
#include "report_output.h"
#include "report_spec.h"
#include "row_sort.h"
#include "session.h"
#include "volume_lookup.h"
#include "walk_rows.h"

namespace qvr {

namespace {

constexpr int PRINTED = 0, NOT_PRINTED = 1;

plan_facts_t facts_of(const settings_t &settings, const request_t &request) {
  plan_facts_t facts;
  facts.linear = settings.linear();
  facts.bootstrap = settings.bootstrap_count != 0;
  facts.media_position_asked = settings.media_position_asked;
  facts.sort_order = request.sort_order;
  facts.now = time_now();
  return facts;
}

int no_data_requested() {
  std::fflush(stdout);
  msg_print(6092, 55000, MSG_STDERR, "No data requested, no report generated\n");
  return NOT_PRINTED;
}

// What the session could not do comes first, as it may be the reason.
int no_matches() {
  std::fflush(stdout);
  if (errobj_t *error = mif_last_error()) err_print(error);
  msg_print(6095, 2, MSG_STDERR, "no matches found for the query\n");
  return NOT_PRINTED;
}

struct failure_row_t {
  fetch_failure failure;
  int id;
  const char *format;
};
constexpr failure_row_t failure_rows[] = {
    {fetch_failure::create, 159258, "Unable to create thread queue for save set fetch: %s\n"},
    {fetch_failure::push, 159260,
     "Unable to push work load onto thread queue for save set fetch: %s\n"},
    {fetch_failure::destroy, 159261,
     "Unable to destroy thread queue while waiting for save set fetches to complete: %s\n"},
};

int fetch_failed(const fetch_result_t &result) {
  std::fflush(stdout);
  for (const failure_row_t &row : failure_rows) {
    if (row.failure != result.failure) continue;
    msg_print(row.id, result.error + 15000, MSG_STDERR, row.format,
              {{MSG_ARG_ERRTEXT, ks_strerror(result.error)}});
  }
  return NOT_PRINTED;
}

// One report on its way.
class report_run {
 public:
  report_run(const settings_t &settings, request_t &request)
      : settings_(settings),
        request_(request),
        plan_(make_plan(facts_of(settings, request), request.query_constraints,
                        request.report_columns)),
        matcher_(request.query_constraints, request.attr_constraints,
                 {settings.client_alias_match ? same_client : nullptr,
                  plan_.sort_order.find('o') != std::string::npos}),
        out_(settings, request.old_forever_shown, request.report_columns) {}

  int run() {
    if (plan_.road == plan_road::nothing) return no_data_requested();
    tell_plan();
    switch (plan_.road) {
      case plan_road::volumes_alone:
        return print_volumes();
      case plan_road::fetch_by_volume:
        return print_by_volume();
      case plan_road::fetch_of_rows:
        return print_fetched_rows();
      default:
        return print_key_query();
    }
  }

 private:
  void tell_plan() const {
    if (!debug_on(2)) return;
    for (const std::string &line : plan_lines(plan_, request_.query_constraints)) {
      KS_DEBUG(2, "%s\n", line.c_str());
    }
  }

  // Rows that a failure left out make a report that is not whole. The resource database has told
  // its own.
  int done() {
    const errobj_t *lost = lookup_.failure();
    if (lost != nullptr || client_lookups_failed()) {
      std::fflush(stdout);
      if (lost != nullptr) err_print(lost);
      return NOT_PRINTED;
    }
    out_.trailer();
    return PRINTED;
  }

  walk_t walk(bool late_test) {
    return {plan_, matcher_, out_, late_test, find_volume_, first_volume_};
  }

  // The volumes that a walk visits.
  bool fetch_volumes() {
    volumes_ = fetch_planned_volumes(plan_.request);
    return matcher_.filter_volumes(volumes_, plan_.left_out) > 0;
  }

  int print_volumes() {
    if (!fetch_volumes()) return no_matches();
    sort_volumes(plan_.sort_order, volumes_);
    out_.header();
    for (const vol_t *vol : volumes_.rows) out_.row(vol, nullptr, nullptr, nullptr, false);
    return done();
  }

  // Volumes are visited in the order of their names.
  void sort_by_name() { sort_volumes(plan_.sort_sign < 0 ? "mR" : "m", volumes_); }

  int print_by_volume() {
    if (!fetch_volumes()) return no_matches();
    sort_by_name();
    auto print = [this](volume_slot_t &slot) { print_slot(slot); };
    fetch_result_t result = fetch_by_volume({plan_, matcher_, request_.server}, volumes_, print);
    if (result.failure != fetch_failure::none) return fetch_failed(result);
    return out_.printed() ? done() : no_matches();
  }

  void print_slot(volume_slot_t &slot) {
    if (slot.vol == nullptr) return;
    const bool any = !slot.save_sets.empty();
    if (!plan_.count_report && !any) return;
    if (!out_.linear()) out_.header();
    if (!plan_.count_report && plan_.needs.save_set) {
      print_save_sets(walk(slot.late_test), slot.vol, slot.save_sets);
    } else {
      out_.row(slot.vol, nullptr, nullptr, nullptr, false);
    }
  }

  int print_fetched_rows() {
    if (!fetch_volumes()) return no_matches();
    sort_by_name();
    auto join = [this](volume_slot_t &slot) { join_slot(slot); };
    fetch_result_t result =
        fetch_rows({plan_, matcher_, request_.server}, request_.query_constraints, volumes_, join);
    if (result.failure != fetch_failure::none) return fetch_failed(result);
    return print_rows();
  }

  void join_slot(volume_slot_t &slot) {
    auto first = static_cast<std::uint32_t>(save_sets_.size());
    for (row_t &row : slot.rows) row.row_ss_number += first;
    rows_.insert(rows_.end(), slot.rows.begin(), slot.rows.end());
    late_test_ |= slot.late_test;
    save_sets_.append(std::move(slot.save_sets));
  }

  int print_key_query() {
    if (!fetch_save_sets()) return NOT_PRINTED;
    if (plan_.needs.detail) {
      build_rows({plan_, nullptr, &clones_, find_volume_}, save_sets_, 0, rows_);
      plan_.needs.fragment_rows = plan_.per_fragment;
    }
    return plan_.needs.detail ? print_rows() : print_without_rows();
  }

  // False when the session failed, which has been told.
  bool fetch_save_sets() {
    if (!fetch_and_filter(plan_.request)) return false;
    const std::optional<std::string> &name = plan_.request.name;
    const bool by_page = plan_.request.kind == request_kind::ss_page;
    if (!by_page || !save_sets_.empty() || !name || is_7bit(*name)) return true;
    // The name may stand in the database in another form.
    name_forms_t forms = name_forms(*name);
    for (const std::string *form : {&forms.escaped, &forms.local}) {
      plan_request_t request = plan_.request;
      request.name = *form;
      if (!fetch_and_filter(request)) return false;
      if (!save_sets_.empty()) return true;
    }
    return true;
  }

  bool fetch_and_filter(const plan_request_t &request) {
    save_sets_ = fetch_planned_save_sets(request);
    if (save_sets_.empty() && request.kind == request_kind::ss_page) {
      if (errobj_t *error = mif_last_error()) {
        std::fflush(stdout);
        err_print(error);
        return false;
      }
    }
    query_matcher::save_set_filter_t filter;
    filter.want_detail = plan_.needs.detail;
    filter.clones = &clones_;
    filter.late_test = &late_test_;
    filter.left_out = &plan_.left_out;
    filter.volumes = find_volume_;
    matcher_.filter_save_sets(save_sets_, filter);
    return true;
  }

  int print_rows() {
    if (save_sets_.empty()) return no_matches();
    if (!rows_.empty()) {
      if (settings_.bootstrap_count != 0) set_bootstrap_columns();
      walk_rows(walk(late_test_), rows_);
      return out_.printed() ? done() : no_matches();
    }
    if (count_without_rows(plan_, request_.report_columns) == ROWS_NEEDED) return no_matches();
    return print_without_rows();
  }

  int print_without_rows() {
    return print_save_sets(walk(late_test_), nullptr, save_sets_) > 0 ? done() : no_matches();
  }

  void set_bootstrap_columns() {
    std::string spec = bootstrap_spec(rows_, settings_.export_kind != EXPORT_NONE);
    request_.report_columns.clear();
    if (const char *refusal = parse_report_spec(spec, request_.report_columns)) {
      KS_UNEXPECTED(refusal);
    }
    close_report(request_.report_columns);
  }

  const settings_t &settings_;
  request_t &request_;
  plan_t plan_;
  query_matcher matcher_;
  report_output out_;
  volume_lookup lookup_{plan_.needs.savesets_column};
  // Named, since the walk borrows them.
  struct finder_t {
    volume_lookup &lookup;
    const vol_t *operator()(const ksui &volid) { return lookup.find(volid); }
  } find_volume_{lookup_};
  struct first_t {
    volume_lookup &lookup;
    const vol_t *operator()() { return lookup.first(); }
  } first_volume_{lookup_};

  vol_list volumes_;
  ss_list save_sets_;
  chosen_clones_t clones_;
  rows_t rows_;
  bool late_test_ = false;
};

}  // namespace

int run_report(const settings_t &settings, request_t &request) {
  return report_run(settings, request).run();
}

}  // namespace qvr
