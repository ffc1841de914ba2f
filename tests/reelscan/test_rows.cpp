// Rows: which combinations are built, in what order they stand, which of them are printed.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>

#include "packed_keys.h"
#include "plan.h"
#include "plan_needs.h"
#include "records_for_test.h"
#include "report_spec.h"
#include "row_sort.h"
#include "rows.h"
#include "ss_flags.h"
#include "walk_rows.h"

namespace qvr {
namespace {

using namespace test;

// Writes rows as "volume:ssid/clone@offset ".
class told_rows : public row_sink {
 public:
  explicit told_rows(bool linear = false) : linear_(linear) {}
  void header() override { printed_ = true; }
  bool printed() const override { return printed_; }
  void row(const vol_t *vol, ss_t *ss, const clone_t *clone, const frag_t *frag,
           bool search) override {
    EXPECT_TRUE(printed_) << "a row without header";
    text += vol == nullptr ? "-" : std::string(vol->volume);
    if (ss != nullptr) text += ":" + std::to_string(ss->ssid.word(1));
    if (clone != nullptr) text += "/" + std::to_string(clone->cloneid);
    if (frag != nullptr) text += "@" + std::to_string(frag->fragoffset);
    if (search && clone == nullptr) text += "?";
    text += " ";
  }
  bool linear() const override { return linear_; }
  void save_set(ss_t &ss, const vol_t *vol) override {
    printed_ = true;
    text += "[" + std::to_string(ss.ssid.word(1)) + (vol == nullptr ? "" : "v") + "] ";
  }

  std::string text;

 private:
  bool linear_, printed_ = false;
};

class rows_test : public ::testing::Test {
 protected:
  rows_test() {
    for (std::uint32_t i = 1; i <= 3; i++) {
      volumes_.push_back(make_.volume(i, std::string(1, static_cast<char>('@' + i))));
    }
    save_sets_.rows = {make_.save_set(1, "mars", "/b"), make_.save_set(2, "Mars", "/a"),
                       make_.save_set(3, "venus", "/b"), make_.save_set(4, "venus", "/c")};
    for (std::size_t i = 0; i < 4; i++) {
      save_sets_.rows[i]->savetime = 1000 + static_cast<std::int64_t>(i);
    }
    // 1: two runs on A around one on B, and a clone on C. 2: A alone. 3: B, then A. 4: nothing.
    make_.set_clones(*ss(1), {{100, {{1, 0}, {1, 5}, {2, 10}, {1, 15}}}, {200, {{3, 0, 9, 1}}}});
    make_.set_clones(*ss(2), {{300, {{1, 0, 2, 7}}}});
    make_.set_clones(*ss(3), {{400, {{2, 0, 2, 2}, {1, 20, 1, 1}}}});
  }

  ss_t *ss(std::size_t number) { return save_sets_.rows[number - 1]; }

  plan_t plan(std::string_view report, plan_facts_t facts = {},
              query_constraints_t constraints = {}) {
    report_columns_t columns;
    if (!report.empty()) {
      EXPECT_EQ(parse_report_spec(report, columns), nullptr);
    }
    return make_plan(facts, constraints, columns);
  }

  rows_t build(const plan_t &plan, const vol_t *vol = nullptr,
               const chosen_clones_t *clones = nullptr) {
    rows_t rows;
    build_rows({plan, vol, clones, finder_}, save_sets_, 0, rows);
    return rows;
  }

  std::string told(const rows_t &rows) {
    told_rows out;
    out.header();
    for (const row_t &row : rows) {
      out.row(row.row_vol, row.row_ss, row.row_clone, row.row_frag, false);
    }
    return out.text;
  }

  std::string walked(const plan_t &plan, rows_t rows, const query_constraints_t &late = {},
                     bool linear = false) {
    query_matcher matcher(late, {}, {});
    told_rows out(linear);
    walk_rows({plan, matcher, out, !late.empty(), finder_, nullptr}, rows);
    return out.text;
  }

  std::string printed(const plan_t &plan, const vol_t *vol, ss_list list,
                      const query_constraints_t &late = {}, bool linear = false) {
    query_matcher matcher(late, {}, {});
    told_rows out(linear);
    auto first = [this] { return volumes_[0]; };
    std::size_t count =
        print_save_sets({plan, matcher, out, !late.empty(), finder_, first}, vol, list);
    EXPECT_EQ(count, static_cast<std::size_t>(std::count(out.text.begin(), out.text.end(), ' ')));
    return out.text;
  }

  record_maker make_;
  std::vector<const vol_t *> volumes_;
  ss_list save_sets_;
  struct finder_t {
    std::vector<const vol_t *> &volumes;
    const vol_t *operator()(const ksui &id) const {
      for (const vol_t *vol : volumes) {
        if (vol->volid == id) return vol;
      }
      return nullptr;
    }
  } finder_{volumes_};
};

struct build_row {
  int line;
  const char *report;
  plan_facts_t facts;
  std::size_t volume;  // 0: none
  const char *rows;
};

TEST_F(rows_test, build) {
  const build_row rows[] = {
      // A run of fragments on one volume is one row, also across clones.
      {__LINE__, "volume, name", {}, 0, "A:1 B:1 A:1 C:1 A:2 B:3 A:3 -:4 "},
      {__LINE__, "volume, name", {}, 1, "A:1 A:2 A:3 -:4 "},
      {__LINE__, "volume, name", {}, 3, "C:1 -:4 "},
      {__LINE__, "name", {}, 0, ""},
      {__LINE__,
       "name, fragsize",
       {},
       0,
       "A:1/100@0 A:1/100@5 B:1/100@10 A:1/100@15 C:1/200@0 A:2/300@0 B:3/400@0 A:3/400@20 -:4 "},
      // With a volume: the first run of fragments on it.
      {__LINE__, "name, fragsize", {}, 1, "A:1/100@0 A:1/100@5 A:2/300@0 A:3/400@20 -:4 "},
      {__LINE__, "volume, name", {.sort_order = "mo"}, 1, "A:1/100@0 A:2/300@0 A:3/400@20 -:4 "},
  };
  for (const build_row &row : rows) {
    SCOPED_TRACE(row.line);
    const vol_t *vol = row.volume == 0 ? nullptr : volumes_[row.volume - 1];
    EXPECT_EQ(told(build(plan(row.report, row.facts), vol)), row.rows);
  }
}

TEST_F(rows_test, clones_that_a_workflow_chose_are_those_of_their_save_set) {
  chosen_clones_t clones = {{ss(1), {"200", "300"}}};
  EXPECT_EQ(told(build(plan("volume, name"), nullptr, &clones)), "C:1 A:2 B:3 A:3 -:4 ");
}

TEST_F(rows_test, a_volume_that_cannot_be_had_gives_no_row) {
  volumes_.erase(volumes_.begin());
  EXPECT_EQ(told(build(plan("volume, name"))), "B:1 C:1 B:3 -:4 ");
}

TEST_F(rows_test, reports_that_cannot_do_without_rows) {
  struct none_row {
    int line;
    const char *report;
    std::int64_t count;
  };
  const none_row rows[] = {{__LINE__, "volume, name", ROWS_NEEDED},
                           {__LINE__, "space, volume, name", ROWS_NEEDED},
                           {__LINE__, "name, volume", 0},
                           {__LINE__, "name", 0}};
  for (const none_row &row : rows) {
    SCOPED_TRACE(row.line);
    report_columns_t columns;
    parse_report_spec(row.report, columns);
    EXPECT_EQ(count_without_rows(plan(row.report), columns), row.count);
  }
  EXPECT_EQ(count_without_rows(plan("", {.bootstrap = true}), {}), ROWS_NEEDED);
}

struct order_row {
  int line;
  const char *order;
  const char *rows, *save_sets, *volumes;
};

TEST_F(rows_test, orders) {
  ss(1)->totalsize = ss(3)->totalsize = 5;
  ss(4)->totalsize = UINT64_MAX;  // fills a word of keys
  ss(2)->ssretent = 0xffffffff;
  ss(3)->ssretent = 50;
  ss(3)->ssinsert = 9;
  make_.set_clones(*ss(1), {{100, {{1, 0, 2, 1}}}});
  make_.set_clones(*ss(3), {{400, {{2, 0, 2, 2}}}});
  ss_t *second = ss(2);
  second->savetime = 0x7fffffff;
  const order_row rows[] = {
      {__LINE__, "c", "A:1 A:2 B:3 -:4 ", "1 2 3 4 ", "A B C "},
      {__LINE__, "cR", "B:3 -:4 A:1 A:2 ", "3 4 1 2 ", "A B C "},
      {__LINE__, "e", "A:1 -:4 B:3 A:2 ", "1 4 3 2 ", "A B C "},
      {__LINE__, "l", "A:2 A:1 B:3 -:4 ", "2 1 3 4 ", "B A C "},
      {__LINE__, "ltR", "-:4 B:3 A:1 A:2 ", "4 3 1 2 ", "C A B "},
      {__LINE__, "m", "-:4 A:1 A:2 B:3 ", "1 2 3 4 ", "A B C "},
      {__LINE__, "n", "A:2 A:1 B:3 -:4 ", "2 1 3 4 ", "A B C "},
      {__LINE__, "o", "-:4 A:1 B:3 A:2 ", "1 2 3 4 ", "A B C "},
      {__LINE__, "t", "A:1 B:3 -:4 A:2 ", "1 3 4 2 ", "C A B "},
      {__LINE__, "tR", "A:2 -:4 B:3 A:1 ", "2 4 3 1 ", "B A C "},
      {__LINE__, "nc", "A:2 A:1 B:3 -:4 ", "2 1 3 4 ", "A B C "},
      {__LINE__, "lnR", "-:4 A:1 B:3 A:2 ", "4 1 3 2 ", "C A B "},
      {__LINE__, "", "A:1 A:2 B:3 -:4 ", "1 2 3 4 ", "A B C "},
  };
  for (const order_row &row : rows) {
    SCOPED_TRACE(row.line);
    rows_t built = build(plan("name, fragsize"));
    sort_rows(row.order, built);
    std::string text;
    for (const row_t &each : built) {
      text += (each.row_vol == nullptr ? "-" : std::string(each.row_vol->volume)) + ":" +
              std::to_string(each.row_ss->ssid.word(1)) + " ";
    }
    EXPECT_EQ(text, row.rows);
    ss_list list;
    list.rows = save_sets_.rows;
    sort_save_sets(row.order, list);
    text.clear();
    for (const ss_t *each : list.rows) text += std::to_string(each->ssid.word(1)) + " ";
    EXPECT_EQ(text, row.save_sets);
    vol_list vols;
    record_maker make;
    for (const char *name : {"A", "B", "C"}) vols.rows.push_back(make.volume(9, name));
    vols.rows[0]->written = 5;
    vols.rows[2]->written = 7;
    vols.rows[0]->volaccess = 5;
    vols.rows[1]->volaccess = -1;  // as an unsigned number
    sort_volumes(row.order, vols);
    text.clear();
    for (const vol_t *each : vols.rows) text += std::string(each->volume) + " ";
    EXPECT_EQ(text, row.volumes);
  }
}

// Many items are sorted digit by digit: by any number of keys as a stable sort by comparison does.
TEST(packed_keys, agree_with_a_stable_sort) {
  std::mt19937_64 random(5);
  for (std::size_t count : {100, 4095, 4096, 20000}) {
    for (std::uint64_t range : {2ull, 1000ull, 1ull << 40, ~0ull}) {
      std::vector<keys_t> columns(3, keys_t(count));
      for (keys_t &keys : columns) {
        for (std::uint64_t &key : keys) key = 77 + random() % range;
      }
      packed_keys keys(count);
      for (const keys_t &column : columns) keys.add(column);
      for (bool reversed : {false, true}) {
        SCOPED_TRACE(std::to_string(count) + " " + std::to_string(range));
        std::vector<std::uint32_t> model(count);
        std::iota(model.begin(), model.end(), 0u);
        std::stable_sort(model.begin(), model.end(), [&](std::uint32_t a, std::uint32_t b) {
          for (const keys_t &column : columns) {
            if (column[a] != column[b]) return (column[a] < column[b]) != reversed;
          }
          return false;
        });
        ASSERT_EQ(packed_keys(keys).sorted(reversed), model);
      }
    }
  }
}

struct walk_row {
  int line;
  const char *report;
  plan_facts_t facts;
  query_constraints_t late;
  const char *rows;
};

TEST_F(rows_test, walk) {
  const walk_row rows[] = {
      // One row a volume and save set; the walk searches the fragment where detail is wanted.
      {__LINE__, "volume, name, sumsize", {}, {}, "A:2? A:1? A:3? B:1? B:3? C:1? "},
      {__LINE__, "volume, name", {}, {}, "A:2 A:1 A:3 B:1 B:3 C:1 "},
      {__LINE__, "volume, pool", {.sort_order = "m"}, {}, "A:1 B:1 C:1 "},
      // Clones and fragments: marks suppress a second row on a volume, but for true fragments.
      {__LINE__,
       "volume, name",
       {.sort_order = "moR"},
       {},
       "C:1/200@0 B:3/400@0 B:1/100@10 "
       "A:2/300@0 A:3/400@20 A:1/100@0 "},
      {__LINE__,
       "name, fragsize",
       {.sort_order = "mn"},
       {},
       "A:2/300@0 A:1/100@0 A:1/100@5 A:1/100@15 A:3/400@20 B:1/100@10 B:3/400@0 C:1/200@0 "},
      // Late tests.
      {__LINE__,
       "volume, name",
       {.sort_order = "mo"},
       {number_is("mediafile", 2)},
       "A:2/300@0 B:3/400@0 "},
      {__LINE__, "volume, name", {}, {number_is("mediafile", 2)}, "A:2/300@0 B:3/400@0 "},
      {__LINE__, "volume, pool", {}, {number_is("mediafile", 2)}, "A:2/300@0 B:3/400@0 "},
      {__LINE__, "volume, name", {}, {text_is("volume", {"C"})}, "C:1/200@0 "},
  };
  for (const walk_row &row : rows) {
    SCOPED_TRACE(row.line);
    plan_t made = plan(row.report, row.facts);
    rows_t built = build(made);
    std::erase_if(built, [&](const row_t &each) { return each.row_vol == nullptr; });
    EXPECT_EQ(walked(made, built, row.late), row.rows);
  }
}

TEST_F(rows_test, walk_shows_save_sets_without_volumes_and_skips_incomplete_ones) {
  plan_t made = plan("volume, name");
  ss(2)->ssflags = SS_INCOMPLETE;
  ss(3)->name = "";
  EXPECT_EQ(walked(made, build(made)), "-:4 A:1 B:1 C:1 ");
}

TEST_F(rows_test, walk_of_a_linear_report_lists_each_save_set_once) {
  plan_t made = plan("", {.linear = true}, {text_is("pool", {"x"})});
  EXPECT_EQ(walked(made, build(made), {}, true), "[4] [2] [1] [3] ");
  EXPECT_EQ(walked(made, build(made), {text_is("volume", {"B"})}, true), "[1] [3] ");
}

struct print_row {
  int line;
  const char *report;
  plan_facts_t facts;
  std::size_t volume;  // 0: none
  query_constraints_t late;
  const char *rows;
};

TEST_F(rows_test, print_save_sets_without_rows) {
  const print_row rows[] = {
      {__LINE__, "name", {}, 0, {}, "-:2 -:1 -:3 -:4 "},
      {__LINE__, "name", {.sort_order = "n"}, 0, {}, "-:2? -:1? -:3? -:4? "},
      {__LINE__,
       "name, sumsize",
       {.sort_order = "m"},
       0,
       {},
       "-:1/100@0 -:1/200@0 -:2/300@0 -:3/400@0 A:4? "},
      {__LINE__, "volume, name", {}, 1, {}, "A:2 A:1 A:3 A:4 "},
      {__LINE__, "name, cloneid", {}, 0, {}, "-:2/300 -:1/100 -:1/200 -:3/400 A:4? "},
      {__LINE__, "name, cloneid", {}, 1, {}, "A:2? A:1? A:3? A:4? "},
      {__LINE__, "name", {}, 0, {number_is("mediafile", 2)}, "-:2/300@0 -:3/400@0 "},
      // By place on a volume.
      {__LINE__, "name, mediafile", {}, 1, {}, "-:4? A:1/100@0 A:1/100@5 A:3/400@20 A:2/300@0 "},
      {__LINE__, "name, mediafile", {}, 1, {number_is("mediafile", 2)}, "A:2/300@0 "},
  };
  for (const print_row &row : rows) {
    SCOPED_TRACE(row.line);
    const vol_t *vol = row.volume == 0 ? nullptr : volumes_[row.volume - 1];
    ss_list list;
    list.rows = save_sets_.rows;
    EXPECT_EQ(printed(plan(row.report, row.facts), vol, std::move(list), row.late), row.rows);
  }
  ss_list list;
  list.rows = {ss(2), ss(1)};
  EXPECT_EQ(printed(plan("", {.linear = true}), volumes_[0], std::move(list), {}, true),
            "[2v] [1v] ");
}

struct boot_row {
  int line;
  std::function<void(vol_t &, ss_t &)> change;
  bool all;
  const char *spec;  // behind the two first columns
};

TEST(bootstrap, columns_follow_the_rows) {
  const auto same = [](vol_t &, ss_t &) {};
  record_maker make;
  const boot_row rows[] = {
      {__LINE__, same, false, ", space, volume(9)"},
      {__LINE__, [](vol_t &vol, ss_t &) { vol.barcode = "TAPE.001"; }, false, ", space, volume(9)"},
      {__LINE__, [](vol_t &vol, ss_t &) { vol.barcode = "0017"; }, false,
       ", space, volume(9), barcode(5)"},
      {__LINE__, [](vol_t &, ss_t &ss) { ss.clones[0].frags[1].mediarec = 3; }, false,
       ", mediafile(6), mediarec(6), space, space, volume(9)"},
      {__LINE__, [](vol_t &, ss_t &ss) { ss.clones[0].frags[0].mediarec = 3; }, false,
       ", space, volume(9)"},
      {__LINE__, [](vol_t &vol, ss_t &) { vol.location = "shelf"; }, false,
       ", space, volume(9), location(6)"},
      {__LINE__,
       [&](vol_t &vol, ss_t &) {
         vol.location = "node";
         vol.volattrs = make.attrs({{"device access information", {"node:/disk"}}});
       },
       false, ", space, volume(9), access_info"},
      {__LINE__,
       [&](vol_t &vol, ss_t &) {
         vol.location = "nst0";
         vol.volattrs = make.attrs({{"device", {"nst0"}}});
       },
       false, ", space, volume(9), device(5)"},
      {__LINE__, same, true,
       ", mediafile(6), mediarec(6), space, space, volume(9), barcode, location, device, "
       "access_info"},
  };
  for (const boot_row &row : rows) {
    SCOPED_TRACE(row.line);
    vol_t *vol = make.volume(1, "TAPE.001");
    ss_t *ss = make.save_set(1);
    make.set_clones(*ss, {{100, {{2}, {1}}}});
    row.change(*vol, *ss);
    rows_t list = {{vol, ss, nullptr, nullptr, 0}, {nullptr, ss, nullptr, nullptr, 0}};
    EXPECT_EQ(bootstrap_spec(list, row.all),
              std::string("savetime(24), space(2), ssid") + row.spec);
    report_columns_t columns;
    EXPECT_EQ(parse_report_spec(bootstrap_spec(list, row.all), columns), nullptr);
  }
}

}  // namespace
}  // namespace qvr
