#include "match.h"

#include <algorithm>
#include <unordered_map>

#include "debug_words.h"
#include "match_ready.h"

namespace qvr {

namespace {

constexpr std::int16_t CODE_COPIES = 15, CODE_SAVETIME = 51, CODE_TOTAL_MACHINE = 124;

// Records that are fetched into the cache before their turn. A test reads their first members.
constexpr std::ptrdiff_t AHEAD = 16;

bool left_out_at(const left_out_t *left_out, std::size_t place) {
  return left_out != nullptr && place < left_out->size() && (*left_out)[place];
}

constexpr std::string_view twin_types[] = {
    "adv_file", "Bulk Harbor", "Sky Anchors", "BH Upper Rung", "objstr", "guardstation",
};
constexpr std::string_view TWIN_SUFFIX = ".RO";

bool may_have_twin(const vol_t &vol) {
  return std::any_of(std::begin(twin_types), std::end(twin_types),
                     [&](std::string_view type) { return equal_nocase(vol.type, type); });
}

// The clone with a fragment on the volume.
const clone_t *clone_on(const ss_t &ss, const ksui &volid) {
  for (const clone_t &clone : ss.copies()) {
    for (const frag_t &frag : clone.fragments()) {
      if (ksui_cmp(frag.volid, volid) == 0) return &clone;
    }
  }
  return nullptr;
}

}  // namespace

void copy_to_read_only_twins(vol_list &list) {
  std::unordered_map<std::string_view, vol_t *> twins;
  for (vol_t *vol : list.rows) {
    if (vol->volume.ends_with(TWIN_SUFFIX) && may_have_twin(*vol))
      twins.try_emplace(vol->volume, vol);
  }
  if (twins.empty()) return;
  std::string name;
  for (const vol_t *vol : list.rows) {
    if (vol->volume.ends_with(TWIN_SUFFIX) || !may_have_twin(*vol)) continue;
    name.assign(vol->volume).append(TWIN_SUFFIX);
    if (auto twin = twins.find(name); twin != twins.end()) twin->second->written = vol->written;
  }
}

query_matcher::~query_matcher() = default;

query_matcher::query_matcher(const query_constraints_t &constraints,
                             const attrlist &attr_constraints, const match_settings_t &settings)
    : settings_(settings) {
  std::string untested;
  for (const query_constraint_t &qc : constraints) {
    ready_.push_back(std::make_unique<ready_constraint_t>(qc, settings_));
    const ready_constraint_t &ready = *ready_.back();
    const std::int16_t code = ready.code;
    if (code > 0 && (code % 2 != 0 || code == CODE_TOTAL_MACHINE)) wanted_ = true;
    if (code > 9 && code < 50 && code % 2 != 0 && code != CODE_COPIES) wants_detail_ = true;
    if (code > 0 && code % 2 == 0) wants_volumes_ = true;
    if (code == CODE_SAVETIME && (qc.qc_cmp & QC_LOWER) != 0) {
      access_limit_ = static_cast<std::int64_t>(qc.qc_lo);
    }
    if (ready.ss_test == nullptr && ready.frag_test == nullptr && ready.vol_test == nullptr) {
      untested.append(untested.empty() ? "" : ", ").append(qc.qc_mr->mr_key);
    }
  }
  if (!untested.empty()) KS_DEBUG(1, "no test for query fields: %s\n", untested.c_str());
  for (const attr_t &attr : attr_constraints) {
    attr_entry_t entry;
    entry.negated = attr.name.starts_with('!');
    entry.name = attr.name.substr(entry.negated ? 1 : 0);
    if (!entry.name.starts_with('*')) entry.starred = "*" + entry.name;
    entry.values = attr.values;
    attr_entries_.push_back(std::move(entry));
  }
}

bool query_matcher::attrs_match(const packed_attrs &attrs) const {
  for (const attr_entry_t &entry : attr_entries_) {
    packed_attrs::values_t values = packed_attrs::no_values();
    bool present = attrs.find(entry.name, values) ||
                   (!entry.starred.empty() && attrs.find(entry.starred, values));
    bool fits = present;
    if (present && !entry.values.empty()) {
      fits = false;
      std::string_view value;
      while (!fits && values.next(value)) {
        fits = std::any_of(entry.values.begin(), entry.values.end(),
                           [&](const std::string &text) { return equal_nocase(value, text); });
      }
    }
    if (fits == entry.negated) return false;
  }
  return true;
}

std::size_t query_matcher::filter_volumes(vol_list &list, const left_out_t &left_out) const {
  const bool limited = access_limit_ != INT64_MIN;
  if (!limited && !wants_volumes_) return list.size();
  copy_to_read_only_twins(list);
  std::erase_if(list.rows, [&](const vol_t *vol) {
    if (limited && vol->volaccess > 0 && vol->volaccess < access_limit_) return true;
    for (std::size_t i = 0; i < ready_.size(); i++) {
      const ready_constraint_t &ready = *ready_[i];
      if (ready.vol_test == nullptr || left_out_at(&left_out, i)) continue;
      if (!ready.vol_test(ready, *vol)) return true;
    }
    return false;
  });
  return list.size();
}

bool query_matcher::fragment_matches(const clone_t &clone, const frag_t &frag, const vol_t *vol,
                                     const volume_source &volumes) const {
  frag_subject_t subject{clone, frag, vol};
  for (const auto &ready : ready_) {
    if (ready->frag_test == nullptr) continue;
    if (ready->frag_test->needs_volume && subject.vol == nullptr) {
      subject.vol = volumes ? volumes(frag.volid) : nullptr;
      if (subject.vol == nullptr) return false;
    }
    if (!ready->frag_test->test(*ready, subject)) return false;
  }
  return true;
}

bool query_matcher::some_fragment_matches(const ss_t &ss, const save_set_filter_t &filter) const {
  for (const clone_t &clone : ss.copies()) {
    for (const frag_t &frag : clone.fragments()) {
      bool on_volume = filter.vol != nullptr && ksui_cmp(frag.volid, filter.vol->volid) == 0;
      if (filter.vol != nullptr && !on_volume) continue;
      if (fragment_matches(clone, frag, filter.vol, filter.volumes)) return true;
    }
  }
  return false;
}

std::size_t query_matcher::filter_save_sets(ss_list &list, const save_set_filter_t &filter) const {
  bool early = wants_detail_ && (filter.vol != nullptr || filter.want_detail);
  bool late = filter.vol == nullptr && (wants_detail_ || wants_volumes_);
  const bool tested = wanted_ || !attr_entries_.empty();
  if (tested && early && settings_.sort_by_media_place) {
    late = true;
    early = false;
  }
  if (late && filter.late_test != nullptr) *filter.late_test = true;
  if (!tested) return list.size();

  std::unordered_map<std::string_view, bool> known_clients;
  ss_t *const *end = list.rows.data() + list.rows.size();
  std::erase_if(list.rows, [&](ss_t *const &ss) {
    if (end - &ss > AHEAD) fetch_ahead((&ss)[AHEAD], 2);
    const clone_t *clone = filter.vol == nullptr ? nullptr : clone_on(*ss, filter.vol->volid);
    if (filter.vol != nullptr && clone == nullptr && ss->ncopies > 0) return true;
    ss_subject_t subject{*ss, clone, filter.clones, &known_clients};
    for (std::size_t i = 0; i < ready_.size(); i++) {
      const ready_constraint_t &ready = *ready_[i];
      if (ready.ss_test == nullptr || left_out_at(filter.left_out, i)) continue;
      if (!ready.ss_test(ready, subject)) return true;
    }
    if (!attrs_match(ss->attrs)) return true;
    return early && !some_fragment_matches(*ss, filter);
  });
  return list.size();
}

}  // namespace qvr
