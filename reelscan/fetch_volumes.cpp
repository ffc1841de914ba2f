#include "fetch_volumes.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>

#include "debug_words.h"
#include "ks_errors.h"
#include "queries.h"
#include "session.h"
#include "thread_queue.h"
#include "volume_lookup.h"

namespace qvr {

namespace {

constexpr std::uint8_t THREADS = 4;
constexpr std::size_t AHEAD = 32;  // volumes that are fetched before their turn

// The volumes of one fetch on their way through the queue.
class volume_pipe {
 public:
  using work_t = void (*)(const volume_fetch_t &fetch, vol_t &listed, volume_slot_t &slot);

  volume_pipe(const volume_fetch_t &fetch, std::vector<vol_t *> volumes, work_t work)
      : fetch_(fetch), work_(work), items_(volumes.size()) {
    for (std::size_t i = 0; i < volumes.size(); i++) {
      items_[i].pipe = this;
      items_[i].listed = volumes[i];
    }
  }

  fetch_result_t run(take_slot take) {
    ks_tq_ptr queue(ks_tq_create(&volume_pipe::run_item, nullptr, THREADS, THREADS, true));
    if (!queue) return {fetch_failure::create, errno};
    std::size_t pushed = 0;
    for (std::size_t i = 0; i < items_.size(); i++) {
      for (; pushed < items_.size() && pushed < i + AHEAD; pushed++) {
        int number = ks_tq_push(queue.get(), &items_[pushed]);
        if (number != 0) return {fetch_failure::push, ks_errno_of(number)};
      }
      volume_slot_t &slot = wait_for(items_[i]);
      take(slot);
      slot = {};
    }
    int number = ks_tq_destroy(queue.release());
    if (number != 0) return {fetch_failure::destroy, ks_errno_of(number)};
    return {};
  }

 private:
  struct item_t {
    volume_pipe *pipe = nullptr;
    vol_t *listed = nullptr;
    volume_slot_t slot;  // the worker's until `done`, then the main thread's
    bool done = false;   // under mutex_
  };

  static void run_item(void *argument) {
    auto &item = *static_cast<item_t *>(argument);
    volume_pipe &pipe = *item.pipe;
    mif_set_noretry(true);
    mif_set_server(pipe.fetch_.server);
    pipe.work_(pipe.fetch_, *item.listed, item.slot);
    std::lock_guard lock(pipe.mutex_);
    item.done = true;
    pipe.changed_.notify_one();
  }

  volume_slot_t &wait_for(item_t &item) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return item.done; });
    return item.slot;
  }

  const volume_fetch_t &fetch_;
  work_t work_;
  std::vector<item_t> items_;
  std::mutex mutex_;  // guards `done` of every item
  std::condition_variable changed_;
};

// A volume that could not be had is passed over without a message; only this line tells of it.
void tell_passed_over(const char *what, const ksui &volid, const errobj_t *error) {
  if (error == nullptr || !debug_on(1)) return;
  KS_DEBUG(1, "volume walk: %s '%s' passed over (%d: %s)\n", what,
           ksui_ring_text(volid, ksui_form::short_form), error->code, error->text.c_str());
}

// The volume as it is now; null when it could not be had.
vol_t *fetch_fresh(const vol_t &listed, volume_slot_t &slot) {
  slot.fresh = get_vol_id(listed.volid, true);
  if (!slot.fresh.empty()) return slot.fresh.rows.front();
  tell_passed_over("volume", listed.volid, mif_last_error());
  return nullptr;
}

// The volume's save sets that the query keeps.
void fetch_save_sets(const volume_fetch_t &fetch, const vol_t &fresh, const vol_t *vol,
                     bool want_detail, volume_slot_t &slot) {
  if (fresh.nssids == 0) return;
  slot.save_sets = fetchss_ids(fresh.savesets(), true);
  if (slot.save_sets.empty()) {
    tell_passed_over("save sets of volume", fresh.volid, mif_last_error());
    return;
  }
  query_matcher::save_set_filter_t filter;
  filter.vol = vol;
  filter.want_detail = want_detail;
  filter.clones = &slot.clones;
  filter.late_test = &slot.late_test;
  session_volumes others;
  filter.volumes = others;
  fetch.matcher.filter_save_sets(slot.save_sets, filter);
  if (others.failure() == nullptr) return;
  // What could not be tested is not known to fit.
  slot.save_sets = {};
  tell_passed_over("save sets of volume", fresh.volid, others.failure());
}

void work_by_volume(const volume_fetch_t &fetch, vol_t &listed, volume_slot_t &slot) {
  slot.vol = fetch_fresh(listed, slot);
  if (slot.vol == nullptr) return;
  if (fetch.plan.count_report) return;
  const needs_t &needs = fetch.plan.needs;
  fetch_save_sets(fetch, *slot.vol, needs.save_set ? slot.vol : nullptr, needs.detail, slot);
}

void work_rows(const volume_fetch_t &fetch, vol_t &listed, volume_slot_t &slot) {
  const vol_t *found = fetch_fresh(listed, slot);
  if (found == nullptr) return;
  const vol_t &fresh = *found;
  slot.vol = &listed;
  listed.nssids = fresh.nssids;
  fetch_save_sets(fetch, fresh, &listed, true, slot);
  if (slot.save_sets.empty()) return;
  row_build_t build{.plan = fetch.plan, .vol = &listed, .clones = &slot.clones, .volumes = nullptr};
  build_rows(build, slot.save_sets, 0, slot.rows);
}

constexpr std::int16_t access_codes[] = {29, 43, 45, 47, 51};

}  // namespace

bool accessed_too_early(const query_constraints_t &constraints, const vol_t &vol) {
  // A volume whose access is not known may hold anything.
  if (vol.volaccess <= 0) return false;
  return std::any_of(constraints.begin(), constraints.end(), [&](const query_constraint_t &qc) {
    if (std::find(std::begin(access_codes), std::end(access_codes), qc.qc_mr->mr_id) ==
        std::end(access_codes)) {
      return false;
    }
    // What happened at an exact time may have been followed by other accesses.
    query_constraint_t bound;
    bound.qc_cmp = QC_EQUAL | QC_LOWER;
    bound.qc_lo = qc.qc_lo;
    bool has_bound = is_single(qc) || (qc.qc_cmp & QC_LOWER) != 0;
    return has_bound && !time_matches(bound, vol.volaccess, upper_bound::off);
  });
}

fetch_result_t fetch_by_volume(const volume_fetch_t &fetch, vol_list &volumes, take_slot take) {
  return volume_pipe(fetch, volumes.rows, work_by_volume).run(take);
}

fetch_result_t fetch_rows(const volume_fetch_t &fetch, const query_constraints_t &constraints,
                          vol_list &volumes, take_slot take) {
  std::vector<vol_t *> visited;
  for (vol_t *vol : volumes.rows) {
    if (!accessed_too_early(constraints, *vol)) visited.push_back(vol);
  }
  return volume_pipe(fetch, std::move(visited), work_rows).run(take);
}

}  // namespace qvr
