#include "summary_report.h"

#include <cerrno>
#include <memory>

#include "client_identity.h"
#include "debug_words.h"
#include "field_catalogue.h"
#include "ks_errors.h"
#include "ks_mutex.h"
#include "ks_wrappers.h"
#include "match.h"
#include "msg.h"
#include "queries.h"
#include "session.h"
#include "summary_counts.h"
#include "summary_print.h"
#include "thread_queue.h"
#include "volume_lookup.h"

namespace qvr {

namespace {

constexpr std::uint8_t WORKERS = 4;
constexpr std::int16_t SAVETIME = 51;

// What all workers share. Nothing in it changes while they run but the totals.
struct summary_run_t {
  std::string server;
  summary_terms_t terms;
  const query_matcher *matcher = nullptr;
  ks_mutex_ptr mutex;  // guards totals
  summary_counts totals{};
};

struct summary_work {
  ksui volid;
  summary_run_t *run = nullptr;
};

bool starts_on(const ss_t &ss, const ksui &volid) {
  return ss.ncopies > 0 && ss.clones[0].nfrags > 0 &&
         ksui_cmp(ss.clones[0].frags[0].volid, volid) == 0;
}

void summary_worker(void *item) {
  std::unique_ptr<summary_work> work(static_cast<summary_work *>(item));
  summary_run_t &run = *work->run;
  mif_set_noretry(true);
  mif_set_server(run.server);
  vol_list volume = get_vol_id(work->volid, true);
  if (volume.empty()) {
    KS_DEBUG(1, "summary: volume '%s' is passed over\n",
             ksui_text(work->volid, ksui_form::short_form).c_str());
    return;
  }
  const vol_t &vol = *volume.rows.front();
  if (vol.nssids == 0) return;
  ss_list list = fetchss_ids(vol.savesets(), true);
  if (list.empty() && mif_last_error() != nullptr) {
    KS_DEBUG(1, "summary: the save sets of volume '%s' are passed over\n",
             std::string(vol.volume).c_str());
  }
  session_volumes others;
  run.matcher->filter_save_sets(list, {.vol = &vol, .want_detail = true, .volumes = others});
  if (others.failure() != nullptr) {
    KS_DEBUG(1, "summary: the save sets of volume '%s' are passed over\n",
             std::string(vol.volume).c_str());
    return;
  }
  summary_counts counts{};
  for (const ss_t *ss : list.rows) {
    if (starts_on(*ss, vol.volid)) summary_count(*ss, run.terms, counts);
  }
  ks_mutex_lock(run.mutex.get());
  for (std::size_t i = 0; i < counts.size(); i++) run.totals[i].add(counts[i]);
  ks_mutex_unlock(run.mutex.get());
}

summary_period_t period_of(const query_constraints_t &constraints) {
  summary_period_t period;
  for (const query_constraint_t &node : constraints) {
    if (node.qc_mr->mr_id != SAVETIME) continue;
    auto lo = static_cast<std::int64_t>(node.qc_lo), hi = static_cast<std::int64_t>(node.qc_hi);
    if (node.qc_cmp == QC_EQUAL) return {lo, lo};
    if ((node.qc_cmp & QC_LOWER) != 0) period.start = lo;
    if ((node.qc_cmp & QC_UPPER) != 0) period.end = hi;
  }
  return period;
}

// Counts all volumes that were used in the period. False when the list of volumes could not be had
// or a thread facility failed, which has been told.
bool count_volumes(summary_run_t &run, const summary_period_t &period) {
  ks_thread_queue_t *queue = ks_tq_create(summary_worker, nullptr, WORKERS, WORKERS, true);
  if (queue == nullptr) {
    msg_print(159258, 15000 + errno, MSG_STDERR,
              "Unable to create thread queue for save set fetch: %s\n",
              {{MSG_ARG_ERRTEXT, ks_strerror(errno)}});
    return false;
  }
  run.mutex.reset(ks_mutex_create());
  if (run.mutex == nullptr) {
    msg_print(159259, 15000 + errno, MSG_STDERR, "Unable to create mutex for save set fetch: %s\n",
              {{MSG_ARG_ERRTEXT, ks_strerror(errno)}});
    ks_tq_destroy(queue);
    return false;
  }
  bool counted = true;
  vol_list volumes = get_vols_name({}, false);
  if (errobj_t *error = volumes.empty() ? mif_last_error() : nullptr) {
    err_print(error);
    counted = false;
  }
  for (const vol_t *vol : volumes.rows) {
    if (period.start > 0 && vol->volaccess > 0 && vol->volaccess < period.start) continue;
    auto work = std::make_unique<summary_work>(summary_work{vol->volid, &run});
    if (int error = ks_tq_push(queue, work.get()); error != 0) {
      int number = ks_errno_of(error);
      msg_print(159260, 15000 + number, MSG_STDERR,
                "Unable to push work load onto thread queue for save set fetch: %s\n",
                {{MSG_ARG_ERRTEXT, ks_strerror(number)}});
      counted = false;
      break;
    }
    // The worker owns it from here.
    static_cast<void>(work.release());
  }
  if (int error = ks_tq_destroy(queue); error != 0) {
    int number = ks_errno_of(error);
    msg_print(159261, 15000 + number, MSG_STDERR,
              "Unable to destroy thread queue while waiting for save set fetches to complete: %s\n",
              {{MSG_ARG_ERRTEXT, ks_strerror(number)}});
    return false;
  }
  return counted;
}

rpt_settings_t report_settings(const settings_t &settings) {
  rpt_settings_t report;
  report.form = static_cast<rpt_form>(settings.export_kind);
  if (settings.export_kind != EXPORT_NONE) report.spec = settings.export_spec;
  report.linear = true;
  report.through_messages = true;
  report.table = linear_catalogue();
  return report;
}

}  // namespace

int summary_report(const settings_t &settings, request_t &request, std::string_view server) {
  request.sort_order = "m";
  query_matcher matcher(request.query_constraints, request.attr_constraints,
                        {settings.client_alias_match ? same_client : nullptr});
  index_savesets indexes;
  summary_run_t run;
  run.server = server;
  run.terms = {summary_times(), run.server, &indexes};
  run.matcher = &matcher;
  summary_period_t period = period_of(request.query_constraints);
  if (!count_volumes(run, period)) return 1;
  summary_print(report_settings(settings), run.totals, run.terms.times, period);
  return client_lookups_failed() ? 1 : 0;
}

}  // namespace qvr
