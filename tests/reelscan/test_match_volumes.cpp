// Which volumes a constraint keeps, and which fragments.

#include <gtest/gtest.h>

#include <functional>

#include "fetch_volumes.h"
#include "match.h"
#include "records_for_test.h"
#include "ss_flags.h"

namespace qvr {
namespace {

using namespace test;

constexpr std::int64_t FOREVER = 0x7fffffffffffffff;

struct vol_row {
  int line;
  query_constraint_t qc;
  std::function<void(vol_t &)> change;
  bool kept;
};

TEST(match_volumes, one_constraint) {
  record_maker make;
  const auto same = [](vol_t &) {};
  const auto used = [](std::uint64_t written, std::uint64_t capacity, std::uint32_t flags = 0) {
    return [=](vol_t &vol) {
      vol.written = written;
      vol.capacity = capacity;
      vol.volflags = flags;
    };
  };
  const vol_row rows[] = {
      {__LINE__, text_is("volume", {"TAPE"}), same, true},
      {__LINE__, text_is("volume", {"tape"}), same, false},
      {__LINE__, text_is("pool", {"DEFAULT"}), same, true},
      {__LINE__, text_is("location", {""}), same, true},
      {__LINE__, text_is("volid", {"7"}), same, true},
      {__LINE__, text_is("volid", {"7z"}), same, false},
      {__LINE__, at_least("volaccess", FOREVER), same, false},
      {__LINE__, at_least("volretent", 5), [](vol_t &vol) { vol.volretent = 0x7fffffff; }, true},
      {__LINE__, at_most("volretent", 5000000000), [](vol_t &vol) { vol.volretent = 0x7fffffff; },
       false},
      {__LINE__, at_least("metric", 99), same, true},
      // Percent used.
      {__LINE__, number_is("%used", 101), used(0, 100, VOL_FULL), true},
      {__LINE__, number_is("%used", 101), used(100, 100), false},
      {__LINE__, number_is("%used", 100), used(500, 100), true},
      {__LINE__, number_is("%used", 50), used(50, 100), true},
      {__LINE__, at_least("%used", 1), used(1, 999), false},
      {__LINE__, at_least("%used", 1), used(1, 100000000), true},
      {__LINE__, at_least("%used", 1), used(0, 100000000), false},
      {__LINE__, at_least("%used", 2), used(1999999, 100000000), false},
      {__LINE__, at_most("%used", 0), used(1, 100000000), true},
      {__LINE__, number_is("%used", 100), used(5000, 1000), true},
  };
  for (const vol_row &row : rows) {
    SCOPED_TRACE(row.line);
    vol_t *vol = make.volume(7, "TAPE");
    vol->pool = make.text("Default");
    row.change(*vol);
    query_constraints_t constraints = {row.qc};
    vol_list list;
    list.rows = {vol};
    EXPECT_EQ(query_matcher(constraints, {}, {}).filter_volumes(list), row.kept ? 1u : 0u);
  }
}

TEST(match_volumes, those_not_used_since_the_save_time_fail) {
  record_maker make;
  vol_t *old = make.volume(1, "A"), *fresh = make.volume(2, "B"), *never = make.volume(3, "C");
  old->volaccess = 99;
  fresh->volaccess = 100;
  const auto kept = [&](const query_constraint_t &qc, left_out_t left_out = {}) {
    query_constraints_t constraints = {qc};
    vol_list list;
    list.rows = {old, fresh, never};
    query_matcher(constraints, {}, {}).filter_volumes(list, left_out);
    return list.rows;
  };
  EXPECT_EQ(kept(at_least("savetime", 100)), (std::vector<vol_t *>{fresh, never}));
  EXPECT_EQ(kept(at_most("savetime", 100)).size(), 3u);
  EXPECT_EQ(kept(number_is("savetime", 100)).size(), 3u);
  EXPECT_EQ(kept(text_is("volume", {"B"})).size(), 1u);
  EXPECT_EQ(kept(text_is("volume", {"B"}), {true}).size(), 3u);
}

TEST(match_volumes, read_only_twins_show_what_their_volume_holds) {
  record_maker make;
  struct twin_row {
    int line;
    const char *type, *name, *twin_type, *twin;
    std::uint64_t written;
  };
  const twin_row rows[] = {
      {__LINE__, "adv_file", "D1", "adv_file", "D1.RO", 500},
      {__LINE__, "ADV_FILE", "D1", "Sky Anchors", "D1.RO", 500},
      {__LINE__, "file", "D1", "adv_file", "D1.RO", 1},
      {__LINE__, "adv_file", "D1", "Grand Stack", "D1.RO", 1},
      {__LINE__, "adv_file", "D2", "adv_file", "D1.RO", 1},
      {__LINE__, "objstr", "D1.RO", "objstr", "D1.RO.RO", 1},
  };
  for (const twin_row &row : rows) {
    SCOPED_TRACE(row.line);
    vol_t *vol = make.volume(1, row.name), *twin = make.volume(2, row.twin);
    vol->type = row.type;
    twin->type = row.twin_type;
    vol->written = 500;
    twin->written = 1;
    vol_list list;
    list.rows = {twin, vol};
    copy_to_read_only_twins(list);
    EXPECT_EQ(twin->written, row.written);
    EXPECT_EQ(vol->written, 500u);
  }
}

struct frag_case {
  int line;
  query_constraints_t constraints;
  bool fits;
  int asked;  // look-ups of the volume
};

TEST(match_fragments, the_volume_is_asked_for_only_when_it_is_needed) {
  record_maker make;
  vol_t *vol = make.volume(1, "TAPE");
  vol->pool = make.text("Default");
  vol->written = 1;
  vol->capacity = 100000000;
  ss_t *ss = make.save_set(1);
  make.set_clones(*ss, {{100, {{1, 50, 4, 5}, {9, 60}}, SS_SUSPECT}});
  const clone_t &clone = ss->clones[0];
  const frag_case rows[] = {
      {__LINE__, {number_is("cloneid", 100), keyword("suspect")}, true, 0},
      {__LINE__, {keyword("transit")}, false, 0},
      {__LINE__, {at_most("clonetime", 99)}, false, 0},
      {__LINE__, {between("first", 50, 50), number_is("mediafile", 4)}, true, 0},
      {__LINE__, {number_is("mediarec", 6), text_is("pool", {"default"})}, false, 0},
      {__LINE__, {text_is("pool", {"default"}), text_is("volume", {"TAPE"})}, true, 1},
      {__LINE__, {text_is("volume", {"tape"})}, false, 1},
      {__LINE__, {text_is("volid", {"1"})}, true, 0},
      {__LINE__, {text_is("volid", {"2"})}, false, 0},
      {__LINE__, {at_least("%used", 1)}, false, 1},
      {__LINE__, {at_least("mounts", 5)}, false, 1},
      {__LINE__, {text_is("client", {"none"})}, true, 0},
  };
  for (const frag_case &row : rows) {
    SCOPED_TRACE(row.line);
    int asked = 0;
    auto lookup = [&](const ksui &id) -> const vol_t * {
      asked++;
      return id == vol->volid ? vol : nullptr;
    };
    query_matcher matcher(row.constraints, {}, {});
    EXPECT_EQ(matcher.fragment_matches(clone, clone.frags[0], nullptr, lookup), row.fits);
    EXPECT_EQ(asked, row.asked);
    EXPECT_EQ(matcher.fragment_matches(clone, clone.frags[0], vol, nullptr), row.fits);
  }
  query_constraints_t pool = {text_is("pool", {"default"})};
  auto nothing = [](const ksui &) -> const vol_t * { return nullptr; };
  EXPECT_FALSE(
      query_matcher(pool, {}, {}).fragment_matches(clone, clone.frags[1], nullptr, nothing));
}

// A walk passes a volume over only when nothing that the query wants can lie on it.
TEST(match_volumes, too_early_an_access_is_proof) {
  record_maker make;
  vol_t *vol = make.volume(7, "TAPE");
  const struct {
    int line;
    query_constraint_t qc;
    std::int64_t access;
    bool early;
  } rows[] = {
      {__LINE__, at_least("savetime", 100), 99, true},
      {__LINE__, at_least("savetime", 100), 100, false},
      {__LINE__, at_least("savetime", 100), 0x7fffffff, false},
      {__LINE__, at_least("savetime", FOREVER), 0x7ffffffe, true},
      {__LINE__, at_least("savetime", 100), 0, false},  // not known
      {__LINE__, number_is("savetime", 100), 99, true},
      {__LINE__, number_is("savetime", 100), 101, false},  // used again since
      {__LINE__, at_most("savetime", 100), 5, false},
      {__LINE__, between("ssaccess", 100, 200), 99, true},
      {__LINE__, between("sscomp", 100, 200), 300, false},
      {__LINE__, at_least("ssretent", 100), 99, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    vol->volaccess = row.access;
    EXPECT_EQ(accessed_too_early({at_least("nfiles", 1), row.qc}, *vol), row.early);
  }
}

}  // namespace
}  // namespace qvr
