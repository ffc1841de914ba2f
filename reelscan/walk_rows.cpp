#include "walk_rows.h"

#include <algorithm>
#include <unordered_set>

#include "debug_words.h"
#include "row_sort.h"
#include "ss_flags.h"

namespace qvr {

namespace {

constexpr std::size_t AHEAD = 16;  // records that are fetched into the cache before their turn

bool same_volume(const vol_t *a, const vol_t *b) {
  if (a == b) return true;
  return a != nullptr && b != nullptr && ksui_cmp(a->volid, b->volid) == 0;
}

bool late_matches(const walk_t &walk, const clone_t &clone, const frag_t &frag, const vol_t *vol) {
  return !walk.late_test || walk.matcher.fragment_matches(clone, frag, vol, walk.volumes);
}

// A row without fragment has nothing that could fit.
bool row_matches(const walk_t &walk, const row_t &row) {
  if (!walk.late_test) return true;
  return row.row_clone != nullptr && row.row_frag != nullptr &&
         late_matches(walk, *row.row_clone, *row.row_frag, row.row_vol);
}

struct ssid_hash {
  std::size_t operator()(const ksui &id) const {
    return std::hash<std::string_view>()(
        {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()});
  }
};

class row_walk {
 public:
  row_walk(const walk_t &walk, const rows_t &rows) : walk_(walk), rows_(rows) {
    std::uint32_t highest = 0;
    for (const row_t &row : rows) highest = std::max(highest, row.row_ss_number);
    marks_.assign(rows.empty() ? 0 : highest + std::size_t{1}, false);
  }

  void run() {
    const needs_t &needs = walk_.plan.needs;
    for (place_ = 0; place_ < rows_.size(); place_++) {
      const row_t &row = rows_[place_];
      fetch_ahead(rows_[std::min(place_ + AHEAD, rows_.size() - 1)].row_ss);
      if (walk_.out.linear())
        linear_row(row);
      else if (row.row_clone != nullptr)
        clone_row(row);
      else if (!needs.fragment_rows && !walk_.late_test)
        save_set_row(row);
      else
        fragments_row(row);
    }
  }

 private:
  bool on_previous_volume(const row_t &row) const {
    return previous_ != nullptr && same_volume(previous_->row_vol, row.row_vol);
  }

  void clone_row(const row_t &row) {
    if (!row_matches(walk_, row)) return;
    walk_.out.header();
    bool same = on_previous_volume(row);
    if (!same && walk_.plan.sort_order.starts_with('m')) clear_run();
    if (!walk_.plan.needs.each_fragment && same && marks_[row.row_ss_number]) return;
    marks_[row.row_ss_number] = true;
    walk_.out.row(row.row_vol, row.row_ss, row.row_clone, row.row_frag, true);
    previous_ = &row;
  }

  // Save sets may be shown again on the volume whose rows begin here.
  void clear_run() {
    const vol_t *vol = rows_[place_].row_vol;
    for (std::size_t i = place_; i < rows_.size() && same_volume(rows_[i].row_vol, vol); i++) {
      marks_[rows_[i].row_ss_number] = false;
    }
  }

  void save_set_row(const row_t &row) {
    const needs_t &needs = walk_.plan.needs;
    if (on_previous_volume(row) && (!needs.save_set || previous_->row_ss == row.row_ss)) return;
    previous_ = &row;
    const ss_t &ss = *row.row_ss;
    if (ss.client.empty() || ss.name.empty() || (ss.ssflags & SS_INCOMPLETE) != 0) {
      KS_DEBUG(1, "Skipping invalid/incomplete ssid '%s'\n",
               ksui_ring_text(ss.ssid, ksui_form::short_form));
      return;
    }
    walk_.out.header();
    walk_.out.row(row.row_vol, row.row_ss, nullptr, nullptr, needs.detail);
  }

  void fragments_row(const row_t &row) {
    if (row.row_vol == nullptr) return;
    for (const clone_t &clone : row.row_ss->copies()) clone_fragments(row, clone);
  }

  void clone_fragments(const row_t &row, const clone_t &clone) {
    const needs_t &needs = walk_.plan.needs;
    for (const frag_t &frag : clone.fragments()) {
      if (ksui_cmp(frag.volid, row.row_vol->volid) != 0) continue;
      if (!late_matches(walk_, clone, frag, row.row_vol)) continue;
      walk_.out.header();
      bool volume_alone = !needs.fragment_rows && !needs.save_set;
      if (volume_alone && on_previous_volume(row)) return;
      walk_.out.row(row.row_vol, row.row_ss, &clone, &frag, true);
      previous_ = &row;
      if (!needs.fragment_rows) return;
    }
  }

  void linear_row(const row_t &row) {
    if (walk_.late_test && !some_fragment_matches(row)) return;
    if (listed_.insert(row.row_ss->ssid).second) walk_.out.save_set(*row.row_ss, nullptr);
  }

  bool some_fragment_matches(const row_t &row) const {
    if (row.row_vol == nullptr) return false;
    for (const clone_t &clone : row.row_ss->copies()) {
      for (const frag_t &frag : clone.fragments()) {
        if (ksui_cmp(frag.volid, row.row_vol->volid) == 0 &&
            late_matches(walk_, clone, frag, row.row_vol)) {
          return true;
        }
      }
    }
    return false;
  }

  const walk_t &walk_;
  const rows_t &rows_;
  std::size_t place_ = 0;
  const row_t *previous_ = nullptr;  // the last row printed
  std::vector<bool> marks_;          // of each save set: shown in this run of a volume
  std::unordered_set<ksui, ssid_hash> listed_;
};

// The rows of one save set that is printed by itself.
class save_set_print {
 public:
  save_set_print(const walk_t &walk, const vol_t *vol) : walk_(walk), vol_(vol) {}

  // The number of rows printed; `before` is the save set printed before, if any.
  std::size_t print(ss_t &ss, const ss_t *before) {
    const needs_t &needs = walk_.plan.needs;
    if (walk_.out.linear()) return print_listing(ss);
    walk_.out.header();
    bool by_fragment = needs.fragment_rows || walk_.late_test;
    if (!by_fragment && (!needs.clone_test || vol_ != nullptr)) {
      walk_.out.row(vol_, &ss, nullptr, nullptr, needs.detail);
      return 1;
    }
    if (needs.clone_test && before != nullptr && ksui_cmp(before->ssid, ss.ssid) == 0) return 0;
    std::size_t count = 0;
    for (const clone_t &clone : ss.copies()) {
      if (by_fragment) {
        count += print_fragments(ss, clone);
      } else {
        walk_.out.row(vol_, &ss, &clone, nullptr, needs.detail);
        count++;
      }
    }
    // A save set that failed the late test is none of the report's.
    if (count == 0 && vol_ == nullptr && !walk_.late_test) count += print_with_first_volume(ss);
    return count;
  }

 private:
  std::size_t print_listing(ss_t &ss) {
    if (walk_.late_test && !some_fragment_matches(ss)) return 0;
    walk_.out.save_set(ss, vol_);
    return 1;
  }

  bool is_on_volume(const frag_t &frag) const {
    return vol_ == nullptr || ksui_cmp(frag.volid, vol_->volid) == 0;
  }

  bool some_fragment_matches(const ss_t &ss) const {
    for (const clone_t &clone : ss.copies()) {
      for (const frag_t &frag : clone.fragments()) {
        if (is_on_volume(frag) && late_matches(walk_, clone, frag, vol_)) return true;
      }
    }
    return false;
  }

  std::size_t print_fragments(ss_t &ss, const clone_t &clone) {
    std::size_t count = 0;
    for (const frag_t &frag : clone.fragments()) {
      if (!is_on_volume(frag) || !late_matches(walk_, clone, frag, vol_)) continue;
      walk_.out.row(vol_, &ss, &clone, &frag, walk_.plan.needs.detail);
      count++;
      if (!walk_.plan.needs.each_fragment) break;
    }
    return count;
  }

  std::size_t print_with_first_volume(ss_t &ss) {
    const vol_t *first = walk_.first_volume ? walk_.first_volume() : nullptr;
    if (first == nullptr) return 0;
    walk_.out.row(first, &ss, nullptr, nullptr, walk_.plan.needs.detail);
    return 1;
  }

  const walk_t &walk_;
  const vol_t *vol_;
};

std::size_t print_fragment_rows(const walk_t &walk, const vol_t *vol, const ss_list &list) {
  rows_t rows;
  build_rows({.plan = walk.plan, .vol = vol, .clones = nullptr, .volumes = nullptr}, list, 0, rows);
  sort_rows(walk.plan.sort_order, rows);
  std::size_t count = 0;
  for (const row_t &row : rows) {
    if (!row_matches(walk, row)) continue;
    walk.out.header();
    walk.out.row(row.row_vol, row.row_ss, row.row_clone, row.row_frag, walk.plan.needs.detail);
    count++;
  }
  return count;
}

}  // namespace

void walk_rows(const walk_t &walk, rows_t &rows) {
  sort_rows(walk.plan.sort_order, rows);
  row_walk(walk, rows).run();
}

std::size_t print_save_sets(const walk_t &walk, const vol_t *vol, ss_list &list) {
  const bool by_place = walk.plan.sort_order.find('o') != std::string::npos;
  if (by_place && vol != nullptr && walk.plan.needs.fragment_rows) {
    return print_fragment_rows(walk, vol, list);
  }
  sort_save_sets(walk.plan.sort_order, list);
  save_set_print print(walk, vol);
  std::size_t count = 0;
  const ss_t *before = nullptr;
  for (std::size_t i = 0; i < list.size(); i++) {
    fetch_ahead(list.rows[std::min(i + AHEAD, list.size() - 1)]);
    count += print.print(*list.rows[i], before);
    before = list.rows[i];
  }
  return count;
}

}  // namespace qvr
