// Which save sets a constraint keeps: one record, one constraint, yes or no.

#include <gtest/gtest.h>

#include <functional>

#include "match.h"
#include "records_for_test.h"
#include "ss_flags.h"

namespace qvr {
namespace {

using namespace test;

constexpr std::int64_t FOREVER = 0x7fffffffffffffff, DAY = 86400;

bool moon_is_mars(std::string_view a, std::string_view b) {
  return a == "mars" && b == "moon";
}

query_constraint_t attribute_name(std::vector<std::string> patterns, std::uint16_t equal_bits) {
  query_constraint_t qc = text_is("ssattr", std::move(patterns));
  if (qc.values.size() > 1)
    qc.qc_cmp = QC_MIXED;
  else if (equal_bits == 0)
    qc.qc_cmp = QC_NOT_EQUAL;
  qc.qc_eqbits = equal_bits;
  return qc;
}

class match_save_sets : public ::testing::Test {
 protected:
  // Does the filter keep the record?
  bool keeps(const query_constraint_t &qc, ss_t *ss, query_matcher::save_set_filter_t filter = {},
             bool aliases = true) {
    query_constraints_t constraints = {qc};
    query_matcher matcher(constraints, {}, {aliases ? moon_is_mars : nullptr, false});
    ss_list list;
    list.rows = {ss};
    return matcher.filter_save_sets(list, filter) == 1;
  }

  record_maker make_;
};

struct value_row {
  int line;
  query_constraint_t qc;
  std::function<void(ss_t &)> change;
  bool kept;
};

TEST_F(match_save_sets, numbers_times_and_durations) {
  const auto same = [](ss_t &) {};
  const auto retent = [](std::uint32_t delta) {
    return [delta](ss_t &ss) { ss.ssretent = delta; };
  };
  const auto browse = [](std::uint32_t delta) {
    return [delta](ss_t &ss) { ss.ssbrowse = delta; };
  };
  const value_row rows[] = {
      {__LINE__, number_is("totalsize", 5000), same, true},
      {__LINE__, at_least("totalsize", 5001), same, false},
      {__LINE__, between("totalsize", 4000, 5000), same, true},
      {__LINE__, at_most("totalsize", 4999), same, false},
      {__LINE__, at_most("totalsize", 5), [](ss_t &ss) { ss.totalsize = UINT64_MAX; }, false},
      {__LINE__, number_is("nfiles", 12), same, true},
      {__LINE__, at_least("copies", 1), same, false},
      {__LINE__, number_is("level", 0), same, false},
      {__LINE__, number_is("level", -2), [](ss_t &ss) { ss.level = -2; }, true},
      {__LINE__, at_most("level", 0), [](ss_t &ss) { ss.level = -9; }, true},
      {__LINE__, at_least("level", 1), [](ss_t &ss) { ss.level = -9; }, false},
      {__LINE__, between("savetime", 1000, 1000), same, true},
      {__LINE__, at_least("savetime", 1001), same, false},
      {__LINE__, at_most("savetime", 999), same, false},
      {__LINE__, at_least("ssinsert", 2000), same, true},
      {__LINE__, at_least("sscreate", 3000), same, true},
      {__LINE__, at_most("sscomp", 3999), same, false},
      // Limits behind the insert time, and the three ways to be forever.
      {__LINE__, number_is("ssretent", 2050), retent(50), true},
      {__LINE__, at_least("ssretent", FOREVER), retent(50), false},
      {__LINE__, at_least("ssretent", FOREVER), retent(0xffffffff), true},
      {__LINE__, at_least("ssretent", 5000000000), retent(0xffffffff), true},
      {__LINE__, at_most("ssretent", 5000000000), retent(0xffffffff), false},
      {__LINE__, at_most("ssretent", FOREVER), retent(0xffffffff), true},
      {__LINE__, number_is("ssretent", FOREVER), retent(0xffffffff), true},
      {__LINE__, number_is("ssretent", 0x7fffffff), retent(0xffffffff), true},
      {__LINE__, number_is("ssretent", FOREVER), retent(50), false},
      {__LINE__, at_most("ssbrowse", 2050), browse(50), true},
      {__LINE__, at_most("ssbrowse", 2049), browse(50), false},
      {__LINE__, at_least("ssbrowse", FOREVER),
       [](ss_t &ss) {
         ss.ssinsert = FOREVER - 5;
         ss.ssbrowse = 6;
       },
       true},
      {__LINE__, number_is("ssexp", 0), retent(0), true},
      {__LINE__, number_is("ssexp", 2050), retent(50), true},
      {__LINE__, at_least("ssexp", FOREVER), retent(0xffffffff), true},
      {__LINE__, number_is("clretent", 2050), retent(50), true},
      // Durations at the granularity of the bound.
      {__LINE__, number_is("ssretentdur", 3 * DAY), retent(3 * DAY + 7200), true},
      {__LINE__, number_is("ssretentdur", 3 * DAY), retent(4 * DAY), false},
      {__LINE__, number_is("ssretentdur", 7200), retent(7200 + 59), true},
      {__LINE__, number_is("ssretentdur", 120), retent(121), true},
      {__LINE__, number_is("ssretentdur", 121), retent(120), false},
      {__LINE__, number_is("ssretentdur", 0), retent(1), false},
      {__LINE__, at_most("ssretentdur", 2 * DAY), retent(2 * DAY + 100), true},
      {__LINE__, at_most("ssretentdur", 2 * DAY), retent(0xffffffff), false},
      {__LINE__, at_least("ssretentdur", 2 * DAY), retent(0xffffffff), true},
      {__LINE__, number_is("clretentdur", FOREVER), retent(0xffffffff), true},
      // Flags: both bits of a mask.
      {__LINE__, keyword("incomplete"), same, false},
      {__LINE__, keyword("incomplete", false), same, true},
      {__LINE__, keyword("incomplete"), [](ss_t &ss) { ss.ssflags = SS_INCOMPLETE; }, true},
  };
  for (const value_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    ss->totalsize = 5000;
    ss->nfiles = 12;
    ss->level = 10;
    ss->savetime = 1000;
    ss->ssinsert = 2000;
    ss->sscreate = 3000;
    ss->sscomp = 4000;
    row.change(*ss);
    EXPECT_EQ(keeps(row.qc, ss), row.kept);
  }
}

TEST_F(match_save_sets, texts_and_names) {
  const auto client = [](const char *text) { return [text](ss_t &ss) { ss.client = text; }; };
  const auto name = [](const char *text) { return [text](ss_t &ss) { ss.name = text; }; };
  const value_row rows[] = {
      {__LINE__, text_is("client", {"mars"}), client("mars"), true},
      {__LINE__, text_is("client", {"mars"}), client("moon"), true},
      {__LINE__, text_is("client", {"mars"}), client("MARS"), false},
      {__LINE__, text_is("client", {"mars", "venus"}), client("moon"), false},
      {__LINE__, text_is("client", {"mars", "venus"}), client("venus"), true},
      {__LINE__, text_is("client", {"mars", "venus"}), client("Venus"), false},
      {__LINE__, text_is("name", {"/home"}), name("/home \t\n"), true},
      {__LINE__, text_is("name", {"/home"}), name("/Home"), false},
      {__LINE__, text_is("name", {"/a", "/home"}), name("/home"), true},
      // Bytes from 0x80 up as they stand, or written as three bytes each.
      {__LINE__, text_is("name", {"/b\xc3\xa4r"}), name("/b\xc3\xa4r"), true},
      {__LINE__, text_is("name", {"/a"}), name("/a\xef\xa2\x80"), false},
  };
  for (const value_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    row.change(*ss);
    EXPECT_EQ(keeps(row.qc, ss), row.kept);
  }
  ss_t *ss = make_.save_set(1, "moon", "/home  ");
  EXPECT_FALSE(keeps(text_is("client", {"mars"}), ss, {}, false)) << "without aliases";
  keeps(text_is("name", {"/home"}), ss);
  EXPECT_EQ(ss->name, "/home") << "cut for good";
}

TEST_F(match_save_sets, forms_of_a_name) {
  // The suite runs in the locale C, which counts as ISO 8859-1.
  name_forms_t forms = name_forms("\xc3\xa4");
  EXPECT_EQ(forms.local, "\xe4");
  EXPECT_EQ(forms.escaped, "\xef\xa3\xa4");
  EXPECT_TRUE(forms.usable);
  forms = name_forms("\xc2\x85x");
  EXPECT_EQ(forms.escaped, "\xef\xa2\x85x");
  forms = name_forms("plain");
  EXPECT_EQ(forms.local, "plain");
  EXPECT_EQ(forms.escaped, "plain");
  for (const char *stored : {"\xe4", "\xef\xa3\xa4", "\xc3\xa4"}) {
    EXPECT_TRUE(keeps(text_is("name", {"\xc3\xa4"}), make_.save_set(1, "mars", stored)));
  }
}

struct attr_row {
  int line;
  query_constraint_t qc;
  attrlist attrs;
  bool kept;
};

TEST_F(match_save_sets, attributes) {
  const attr_row rows[] = {
      {__LINE__, text_is("group", {"x"}), {{"group", {"X", "y"}}}, true},
      {__LINE__, text_is("group", {"y"}), {{"group", {"X", "y"}}}, false},
      {__LINE__, text_is("group", {""}), {}, true},
      {__LINE__, text_is("group", {"x"}), {}, false},
      {__LINE__, text_is("group", {""}), {{"group", {""}}}, true},
      {__LINE__, text_is("group", {""}), {{"group", {"x"}}}, false},
      {__LINE__, text_is("group", {"x", ""}), {}, true},
      {__LINE__, text_is("ssbundle", {"b"}), {{"save set bundle", {"b"}}}, true},
      {__LINE__, text_is("ssbundle", {"b"}), {{"save set bundle", {"B"}}}, false},
      {__LINE__, text_is("ssbundle", {""}), {}, false},
      {__LINE__, text_is("checkpoint_id", {"17"}), {{"*checkpoint_id", {"17"}}}, true},
      {__LINE__, text_is("annotation", {"ni.ht"}), {{"annotation", {"last NIGHT's"}}}, true},
      {__LINE__, text_is("annotation", {"^night"}), {{"annotation", {"last night"}}}, false},
      {__LINE__, text_is("annotation", {"x", "t$"}), {{"annotation", {"last night"}}}, true},
      {__LINE__, text_is("annotation", {"a"}), {}, false},
      {__LINE__, attr_keyword("dedupe", true), {{"*De-duplication", {"yes"}}}, true},
      {__LINE__, attr_keyword("dedupe", true), {{"*De-duplication", {"true"}}}, false},
      {__LINE__, attr_keyword("dedupe", false), {}, true},
      {__LINE__, attr_keyword("Zirrel", false), {{"*De-duplication", {"Yes"}}}, false},
      {__LINE__, attr_keyword("rehydrated", true), {{"*Rehydrated", {"Yes"}}}, true},
      {__LINE__, attr_keyword("syntheticfull", true), {}, false},
      {__LINE__, attr_keyword("deviceless", true), {{"Deviceless backup", {"YES"}}}, true},
      {__LINE__, attr_keyword("deviceless", true), {{"Deviceless backup", {"No"}}}, false},
      {__LINE__, attr_keyword("deviceless", false), {{"Deviceless backup", {"Yes"}}}, true},
      {__LINE__, attr_keyword("deviceless", false), {}, false},
      {__LINE__, text_is("vmname", {"ALL_VM"}), {{"*vm_name", {"web1"}}}, true},
      {__LINE__, text_is("vmname", {"ALL_VM"}), {}, false},
      {__LINE__, text_is("vmname", {"WEB1"}), {{"*vm_name", {"web1"}}}, true},
      {__LINE__, text_is("vmname", {"ALL_VM", "x"}), {{"*vm_name", {"web1"}}}, false},
      {__LINE__, text_is("totalvmdiskutil", {"7"}), {{"*totalvmdiskutil", {"8"}}}, false},
      {__LINE__, text_is("occupiedvmdiskutil", {"7"}), {{"*occupiedvmdiskutil", {"7"}}}, true},
      {__LINE__, text_is("rdz", {"Zone"}), {{"*restricted data zone", {"zone"}}}, true},
      {__LINE__, text_is("rdz", {""}), {}, false},
      {__LINE__, at_least("ssprotect", 5), {{"*policy protection period", {"6"}}}, true},
      {__LINE__, at_most("ssprotect", 0), {}, true},
      {__LINE__, at_least("bhrltime", 5), {{"*policy action BH retention time", {"9:1 2"}}}, true},
      // Names of attributes by pattern.
      {__LINE__, attribute_name({"*name"}, 1), {{"*vm_name", {"x"}}}, true},
      {__LINE__, attribute_name({"*name"}, 0), {{"*vm_name", {"x"}}}, false},
      {__LINE__, attribute_name({"VM_?ame"}, 1), {{"vm_name", {"x"}}}, true},
      {__LINE__, attribute_name({"vm_[mn]ame"}, 1), {{"vm_name", {}}}, false},
      {__LINE__, attribute_name({"*"}, 1), {{".hidden", {"x"}}}, false},
      {__LINE__, attribute_name({"a*"}, 1), {{"a/b", {"x"}}}, false},
      {__LINE__, attribute_name({"a", "b"}, 1), {{"a", {"x"}}}, true},
      {__LINE__, attribute_name({"a", "b"}, 1), {{"a", {"x"}}, {"b", {"x"}}}, false},
      {__LINE__, attribute_name({"a", "b"}, 3), {{"a", {"x"}}}, false},
  };
  for (const attr_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    ss->attrs = make_.attrs(row.attrs);
    EXPECT_EQ(keeps(row.qc, ss), row.kept);
  }
}

TEST_F(match_save_sets, identifiers) {
  ss_t *ss = make_.save_set(123);
  ss->pssid = id_of(77);
  ss->clientid = id_of(5, KSUI_CLIENT);
  EXPECT_TRUE(keeps(text_is("ssid", {"123"}), ss));
  EXPECT_TRUE(keeps(text_is("ssid", {"123 / 99"}), ss));
  EXPECT_FALSE(keeps(text_is("ssid", {"124"}), ss));
  EXPECT_FALSE(keeps(text_is("ssid", {"123x"}), ss));
  EXPECT_TRUE(keeps(text_is("ssid", {ksui_text(ss->ssid, ksui_form::long_form)}), ss));
  EXPECT_TRUE(keeps(text_is("pssid", {"77"}), ss));
  EXPECT_TRUE(keeps(text_is("clientid", {ksui_text(ss->clientid, ksui_form::long_form)}), ss));
  EXPECT_FALSE(keeps(text_is("clientid", {"5"}), ss));
}

struct workflow_row {
  int line;
  std::vector<std::string> asked;
  vallist values;
  bool kept;
  std::vector<std::string> clones;
};

TEST_F(match_save_sets, a_workflow_chooses_clones_of_its_save_set) {
  const workflow_row rows[] = {
      {__LINE__, {"w"}, {"W:100 200"}, true, {}},
      {__LINE__, {"w"}, {"v:100"}, false, {}},
      {__LINE__, {"w"}, {}, false, {}},
      {__LINE__, {""}, {}, true, {}},
      {__LINE__, {"w"}, {"v:100", "W:200 300"}, true, {"200", "300"}},
      {__LINE__, {"x"}, {"v:100", "w:200"}, false, {}},
      {__LINE__, {"x", "v"}, {"v:100", "w:200"}, true, {"100"}},
      {__LINE__, {"w"}, {"v:100", "w"}, true, {}},
  };
  for (const workflow_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    ss->attrs = make_.attrs({{"*policy workflow name", row.values}});
    chosen_clones_t clones;
    EXPECT_EQ(keeps(text_is("workflow", row.asked), ss, {.clones = &clones}), row.kept);
    EXPECT_EQ(clones[ss], row.clones);
  }
}

struct terms_row {
  int line;
  attrlist terms, attrs;
  bool kept;
};

TEST_F(match_save_sets, attribute_terms) {
  const attrlist x_is_y = {{"x", {"z", "Y"}}};
  const terms_row rows[] = {
      {__LINE__, {{"x", {}}}, {}, false},
      {__LINE__, {{"!x", {}}}, {}, true},
      {__LINE__, {{"x", {}}}, x_is_y, true},
      {__LINE__, {{"X", {}}}, x_is_y, true},
      {__LINE__, {{"!x", {}}}, x_is_y, false},
      {__LINE__, {{"x", {}}}, {{"*x", {}}}, true},
      {__LINE__, {{"*x", {}}}, x_is_y, false},
      {__LINE__, {{"x", {"y"}}}, x_is_y, true},
      {__LINE__, {{"x", {"q", "y"}}}, x_is_y, true},
      {__LINE__, {{"x", {"q"}}}, x_is_y, false},
      {__LINE__, {{"!x", {"y"}}}, x_is_y, false},
      {__LINE__, {{"!x", {"q"}}}, x_is_y, true},
      {__LINE__, {{"x", {"q"}}}, {{"x", {}}}, false},
      {__LINE__, {{"!x", {"q"}}}, {{"x", {}}}, true},
      {__LINE__, {{"a", {}}, {"x", {"y"}}}, x_is_y, false},
  };
  for (const terms_row &row : rows) {
    SCOPED_TRACE(row.line);
    query_constraints_t none;
    query_matcher matcher(none, row.terms, {});
    ss_t *ss = make_.save_set(1);
    ss->attrs = make_.attrs(row.attrs);
    ss_list list;
    list.rows = {ss};
    EXPECT_EQ(matcher.filter_save_sets(list, {}), row.kept ? 1u : 0u);
  }
}

// When the fragments are tested at once, and when only as rows are walked.
struct stage_row {
  int line;
  query_constraint_t qc;
  bool with_volume, want_detail, by_place;
  bool late;
  std::size_t kept;  // of a save set whose fragment does not fit
};

TEST_F(match_save_sets, fragments_are_tested_early_or_late) {
  const stage_row rows[] = {
      {__LINE__, number_is("mediafile", 9), false, false, false, true, 1},
      {__LINE__, number_is("mediafile", 9), false, true, false, true, 0},
      {__LINE__, number_is("mediafile", 9), true, false, false, false, 0},
      {__LINE__, number_is("mediafile", 9), true, false, true, true, 1},
      {__LINE__, number_is("mediafile", 4), true, false, false, false, 1},
      {__LINE__, text_is("pool", {"x"}), false, false, false, true, 1},
      {__LINE__, text_is("pool", {"x"}), true, false, false, false, 1},
      {__LINE__, number_is("copies", 1), false, true, false, false, 1},
      {__LINE__, number_is("copies", 2), false, true, false, false, 0},
  };
  vol_t *vol = make_.volume(1, "A");
  for (const stage_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    make_.set_clones(*ss, {{100, {{1, 0, 4}}}});
    ss_list list;
    list.rows = {ss};
    query_constraints_t constraints = {row.qc};
    query_matcher matcher(constraints, {}, {nullptr, row.by_place});
    bool late = false;
    query_matcher::save_set_filter_t filter;
    filter.vol = row.with_volume ? vol : nullptr;
    filter.want_detail = row.want_detail;
    filter.late_test = &late;
    EXPECT_EQ(matcher.filter_save_sets(list, filter), row.kept);
    EXPECT_EQ(late, row.late);
  }
}

TEST_F(match_save_sets, a_volume_keeps_what_lies_on_it) {
  query_constraints_t constraints = {text_is("policy", {"Silver"})};
  query_matcher matcher(constraints, {}, {});
  vol_t *vol = make_.volume(2, "B");
  ss_t *on_it = make_.save_set(1), *elsewhere = make_.save_set(2), *bare = make_.save_set(3);
  make_.set_clones(*on_it, {{100, {{1}}}, {200, {{2}}}});
  make_.set_clones(*elsewhere, {{200, {{1}}}});
  for (ss_t *ss : {on_it, elsewhere, bare}) {
    ss->attrs = make_.attrs({{"*policy name", {"Gold:100", "Silver:200"}}});
  }
  ss_list list;
  list.rows = {on_it, elsewhere, bare};
  // The clone on the volume decides; a save set without clones has the first value.
  EXPECT_EQ(matcher.filter_save_sets(list, {.vol = vol}), 1u);
  EXPECT_EQ(list.rows.front(), on_it);
  vol_t *first = make_.volume(1, "A");
  list.rows = {on_it};
  EXPECT_EQ(matcher.filter_save_sets(list, {.vol = first}), 0u);
}

TEST_F(match_save_sets, what_the_server_applied_is_left_out) {
  query_constraints_t constraints = {text_is("client", {"venus"}), number_is("level", 3)};
  query_matcher matcher(constraints, {}, {});
  ss_t *ss = make_.save_set(1);
  ss->level = 3;
  ss_list list;
  list.rows = {ss};
  left_out_t client = {true, false};
  EXPECT_EQ(matcher.filter_save_sets(list, {.left_out = &client}), 1u);
  EXPECT_EQ(matcher.filter_save_sets(list, {}), 0u);
}

}  // namespace
}  // namespace qvr
