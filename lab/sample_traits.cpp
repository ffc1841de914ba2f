#include "sample_draft.h"
#include "ss_flags.h"
#include "ss_levels.h"

namespace qvr {

namespace {

using draft_t = saveset_draft;

void set_ss_and_clones(draft_t &draft, std::uint32_t flag) {
  draft.record.ssflags |= flag;
  for (copy_draft &copy : draft.copies) copy.flags |= flag;
}

template <std::uint32_t Flag>
void flag_ss(draft_t &draft, sample_site &, sample_random &) {
  draft.record.ssflags |= Flag;
}

template <std::uint32_t Flag>
void flag_first_clone(draft_t &draft, sample_site &, sample_random &) {
  if (!draft.copies.empty()) draft.copies.front().flags |= Flag;
}

void incomplete(draft_t &draft, sample_site &, sample_random &random) {
  draft.record.ssflags = SS_INCOMPLETE | 1;
  draft.record.sscomp = 0;
  draft.record.nfiles = 0;
  draft.record.totalsize = random.below(40000);
  for (copy_draft &copy : draft.copies) copy.flags = SS_INCOMPLETE;
}

// Broken off, then found good by hand.
void incomplete_but_good(draft_t &draft, sample_site &, sample_random &) {
  draft.record.ssflags |= SS_INCOMPLETE;
  for (copy_draft &copy : draft.copies) copy.flags |= SS_INCOMPLETE;
}

void suspect(draft_t &draft, sample_site &site, sample_random &random) {
  flag_first_clone<SS_SUSPECT>(draft, site, random);
  draft.record.ssflags |= SS_SUSPECT;
}

void in_transit(draft_t &draft, sample_site &, sample_random &) {
  set_ss_and_clones(draft, SS_TRANSIT);
}

void expired(draft_t &draft, sample_site &, sample_random &) {
  draft.record.ssbrowse = SAMPLE_DAY / 2;
  draft.record.ssretent = SAMPLE_DAY / 2;
  set_ss_and_clones(draft, SS_RECYCLE | SS_RECOVERABLE);
}

void archived(draft_t &draft, sample_site &site, sample_random &random) {
  draft.record.level = LEVEL_MANUAL;
  draft.record.ssretent = UINT32_MAX;
  draft.record.ssbrowse = UINT32_MAX;
  attrlist_set(draft.attrs, "annotation",
               "Year-end archive, box " + std::to_string(random.between(1, 40)) + " (Müller)");
  for (copy_draft &copy : draft.copies)
    copy.volumes = {site.archive_tapes[random.below(site.archive_tapes.size())]};
}

void migrated(draft_t &draft, sample_site &, sample_random &) {
  draft.record.level = LEVEL_MIGRATION;
  attrlist_set(draft.attrs, "annotation", "migrated by hand");
}

void manual(draft_t &draft, sample_site &, sample_random &) {
  draft.record.level = LEVEL_MANUAL;
}

template <bool Old>
void forever_attribute(draft_t &draft, sample_site &, sample_random &) {
  draft.record.ssretent = UINT32_MAX;
  attrlist_set(draft.attrs, Old ? "*QVR_OLD_FOREVER_TIME" : "*QVR_NEW_FOREVER_TIME", "Yes");
  attrlist_set(draft.attrs, Old ? "*QVR_OLD_FOREVER_BROWSE_TIME" : "*QVR_NEW_FOREVER_BROWSE_TIME",
               "Yes");
}

void other_level(draft_t &draft, sample_site &, sample_random &random) {
  static constexpr std::int32_t levels[] = {1, 2,  3,  4,  5,  6,  7,   8,
                                            9, 11, 12, -1, -8, -9, -10, -11};
  draft.record.level = levels[random.below(std::size(levels))];
}

void offsite_copy(draft_t &draft, sample_site &site, sample_random &random) {
  if (draft.copies.empty()) return;
  copy_draft copy = draft.copies.front();
  copy.cloneid += static_cast<std::int64_t>(random.between(3600, 40000));
  copy.volumes = {site.offsite_tapes[random.below(site.offsite_tapes.size())]};
  draft.copies.push_back(copy);
}

// One copy that runs over the ends of tapes.
void spans_tapes(draft_t &draft, sample_site &site, sample_random &random) {
  if (draft.copies.empty()) return;
  std::size_t first = random.below(site.tapes.size());
  draft.copies.front().volumes.clear();
  for (std::size_t i = 0; i < random.between(2, 3); i++)
    draft.copies.front().volumes.push_back(site.tapes[(first + i) % site.tapes.size()]);
  // The tape changed back and forth.
  if (random.one_in(2)) draft.copies.front().volumes.push_back(site.tapes[first]);
}

void clone_retention(draft_t &draft, sample_site &, sample_random &) {
  attr_t &attr = attrlist_add(draft.attrs, "*ss clone retention");
  std::int64_t days = 60;
  for (const copy_draft &copy : draft.copies) {
    attr.values.push_back(std::to_string(copy.cloneid) + ":" +
                          std::to_string(draft.record.ssinsert) + ":" +
                          std::to_string(days * SAMPLE_DAY));
    days *= 3;
  }
}

void deduplicated(draft_t &draft, sample_site &, sample_random &random) {
  attrlist_add(draft.attrs, "*De-duplication");
  attrlist_set(draft.attrs, "*vl_znod_backup_size",
               std::to_string(draft.record.totalsize / random.between(3, 20)));
}

void rehydrated(draft_t &draft, sample_site &, sample_random &) {
  attrlist_set(draft.attrs, "*Rehydrated", "Yes");
}

void synthetic(draft_t &draft, sample_site &, sample_random &) {
  draft.record.level = LEVEL_SYNTH_FULL;
  attrlist_set(draft.attrs, "*Synthetic full", "Yes");
}

void deviceless(draft_t &draft, sample_site &, sample_random &) {
  attrlist_set(draft.attrs, "Deviceless backup", "Yes");
  draft.record.ssflags |= SS_SNAP;
  draft.copies.clear();
}

void checkpoint(draft_t &draft, sample_site &, sample_random &random) {
  draft.record.ssflags |= SS_CHECKPOINT;
  attrlist_set(draft.attrs, "*checkpoint_id", std::to_string(draft.record.savetime));
  attrlist_set(draft.attrs, "*checkpoint_seq", std::to_string(random.between(1, 3)));
}

void bundle(draft_t &draft, sample_site &, sample_random &) {
  attrlist_set(draft.attrs, "save set bundle", "night shift");
}

void zone(draft_t &draft, sample_site &, sample_random &) {
  attrlist_set(draft.attrs, "*restricted data zone", "Zürich");
}

void protection(draft_t &draft, sample_site &, sample_random &) {
  attrlist_set(draft.attrs, "*policy protection period",
               std::to_string(draft.record.savetime + 180 * SAMPLE_DAY));
}

void retention_lock(draft_t &draft, sample_site &, sample_random &) {
  for (const copy_draft &copy : draft.copies) {
    std::string id = ":" + std::to_string(copy.cloneid);
    attrlist_add(draft.attrs, "*BH Retention Lock Mode", "Governance" + id);
    attrlist_add(draft.attrs, "*policy action BH retention time",
                 std::to_string(draft.record.savetime + 14 * SAMPLE_DAY) + id);
  }
}

void long_annotation(draft_t &draft, sample_site &, sample_random &) {
  attrlist_set(draft.attrs, "annotation",
               "Before the move to the new hall: \"keep\", do not recycle; ask operations, "
               "extension 4711, room #12");
  attrlist_set(draft.attrs, "ticket", "CHG-2044; part 2");
}

void two_workflows(draft_t &draft, sample_site &, sample_random &) {
  if (draft.copies.size() < 2) return;
  attrlist_remove(draft.attrs, "*policy workflow name");
  attrlist_add(draft.attrs, "*policy workflow name",
               "Nightly:" + std::to_string(draft.copies[0].cloneid));
  attrlist_add(draft.attrs, "*policy workflow name",
               "Vaulting:" + std::to_string(draft.copies[1].cloneid));
}

void empty(draft_t &draft, sample_site &, sample_random &random) {
  draft.record.totalsize = random.below(5);
  draft.record.nfiles = 0;
}

}  // namespace

const std::vector<sample_trait> SAMPLE_TRAITS = {
    // Copies first: what follows speaks of them.
    {5, 1, offsite_copy},
    {9, 4, spans_tapes},
    {7, 3, other_level},
    {23, 5, manual},
    {29, 6, migrated},
    {19, 7, archived},
    {11, 6, clone_retention},
    {31, 8, forever_attribute<true>},
    {37, 9, forever_attribute<false>},
    {13, 10, deduplicated},
    {41, 11, rehydrated},
    {17, 12, synthetic},
    {43, 13, checkpoint},
    {21, 14, bundle},
    {33, 15, zone},
    {27, 16, protection},
    {35, 17, retention_lock},
    {47, 18, long_annotation},
    {25, 21, two_workflows},
    {39, 20, empty},
    {53, 21, flag_ss<SS_RAW>},
    {59, 22, flag_ss<SS_DSA>},
    {61, 23, flag_ss<SS_COVER>},
    {67, 24, flag_ss<SS_LETTER_O>},
    {71, 25, flag_ss<SS_LETTER_M>},
    {73, 26, flag_ss<SS_ROLLEDIN>},
    {79, 27, in_transit},
    {45, 28, expired},
    {15, 9, suspect},
    {49, 30, deviceless},
    {51, 31, incomplete_but_good},
    {22, 2, incomplete},
};

}  // namespace qvr
