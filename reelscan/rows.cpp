#include "rows.h"

#include <algorithm>

#include "debug_words.h"
#include "plan_needs.h"

namespace qvr {

namespace {

bool same_volume(const ksui &a, const ksui &b) {
  return ksui_cmp(a, b) == 0;
}

bool is_chosen(const chosen_clones_t *choices, const ss_t *ss, const clone_t &clone) {
  if (choices == nullptr) return true;
  auto choice = choices->find(ss);
  if (choice == choices->end()) return true;
  const std::vector<std::string> &ids = choice->second;
  return std::find(ids.begin(), ids.end(), std::to_string(clone.cloneid)) != ids.end();
}

bool has_fragments(const ss_t &ss) {
  std::span<const clone_t> clones = ss.copies();
  return std::any_of(clones.begin(), clones.end(),
                     [](const clone_t &clone) { return clone.nfrags > 0; });
}

// The rows of one save set.
class save_set_rows {
 public:
  save_set_rows(const row_build_t &build, ss_t *ss, std::uint32_t number, rows_t &rows)
      : build_(build), ss_(ss), number_(number), rows_(rows) {}

  void add() {
    if (!has_fragments(*ss_)) return add_without_volume();
    const chosen_clones_t *choices =
        build_.clones != nullptr && !build_.clones->empty() ? build_.clones : nullptr;
    for (const clone_t &clone : ss_->copies()) {
      if (is_chosen(choices, ss_, clone) && !add_clone(clone)) return;
    }
  }

 private:
  void add_without_volume() {
    KS_DEBUG(1, "ssid '%s' has no volumes\n", ksui_ring_text(ss_->ssid, ksui_form::short_form));
    const clone_t *clone = ss_->ncopies > 0 ? ss_->clones : nullptr;
    rows_.push_back({nullptr, ss_, clone, nullptr, number_});
  }

  // False when the save set has all of its rows.
  bool add_clone(const clone_t &clone) {
    for (std::uint32_t i = 0; i < clone.nfrags; i++) {
      const frag_t &frag = clone.frags[i];
      if (!build_.plan.keep_detail && last_ != nullptr && same_volume(frag.volid, *last_)) continue;
      const vol_t *vol = volume_of(frag);
      if (vol == nullptr) continue;
      add_row(vol, clone, frag);
      if (build_.vol == nullptr) continue;
      bool next_too = i + 1 < clone.nfrags && same_volume(clone.frags[i + 1].volid, frag.volid);
      if (!build_.plan.per_fragment || !next_too) return false;
    }
    return true;
  }

  const vol_t *volume_of(const frag_t &frag) const {
    if (build_.vol == nullptr) return build_.volumes ? build_.volumes(frag.volid) : nullptr;
    return same_volume(frag.volid, build_.vol->volid) ? build_.vol : nullptr;
  }

  void add_row(const vol_t *vol, const clone_t &clone, const frag_t &frag) {
    last_ = &frag.volid;
    if (build_.plan.keep_detail)
      rows_.push_back({vol, ss_, &clone, &frag, number_});
    else
      rows_.push_back({vol, ss_, nullptr, nullptr, number_});
  }

  const row_build_t &build_;
  ss_t *ss_;
  std::uint32_t number_;
  rows_t &rows_;
  const ksui *last_ = nullptr;  // the volume of the save set's last row
};

}  // namespace

void build_rows(const row_build_t &build, const ss_list &list, std::uint32_t first_number,
                rows_t &rows) {
  if (!build.plan.volumes_needed) return;
  for (ss_t *ss : list.rows) save_set_rows(build, ss, first_number++, rows).add();
}

std::int64_t count_without_rows(const plan_t &plan, const report_columns_t &columns) {
  if (!plan.volumes_needed) return 0;
  for (const report_column_t &column : columns) {
    if (column.rc_mr == nullptr || column.rc_mr->mr_id == RPT_SPACE_ID) continue;
    if (column.rc_mr->mr_id == RPT_NEWLINE_ID) break;
    return is_volume_code(column.rc_mr->mr_id) ? ROWS_NEEDED : 0;
  }
  return ROWS_NEEDED;
}

}  // namespace qvr
