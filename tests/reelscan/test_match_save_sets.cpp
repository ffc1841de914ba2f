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
  const auto retent = [](std::uint32_t delta) {
    return [delta](ss_t &ss) { ss.ssretent = delta; };
  };
  const value_row rows[] = {
      {__LINE__, at_most("totalsize", 5), [](ss_t &ss) { ss.totalsize = UINT64_MAX; }, false},
      {__LINE__, number_is("level", -2), [](ss_t &ss) { ss.level = -2; }, true},
      {__LINE__, at_most("level", 0), [](ss_t &ss) { ss.level = -9; }, true},
      {__LINE__, at_least("level", 1), [](ss_t &ss) { ss.level = -9; }, false},
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
      {__LINE__, at_least("ssbrowse", FOREVER),
       [](ss_t &ss) {
         ss.ssinsert = FOREVER - 5;
         ss.ssbrowse = 6;
       },
       true},
      {__LINE__, number_is("ssexp", 0), retent(0), true},
      {__LINE__, at_least("ssexp", FOREVER), retent(0xffffffff), true},
      // Durations at the granularity of the bound.
      {__LINE__, number_is("ssretentdur", 3 * DAY), retent(3 * DAY + 7200), true},
      {__LINE__, number_is("ssretentdur", 3 * DAY), retent(4 * DAY), false},
      {__LINE__, number_is("ssretentdur", 7200), retent(7200 + 59), true},
      {__LINE__, number_is("ssretentdur", 120), retent(121), true},
      {__LINE__, number_is("ssretentdur", 121), retent(120), false},
      {__LINE__, at_most("ssretentdur", 2 * DAY), retent(2 * DAY + 100), true},
      {__LINE__, at_most("ssretentdur", 2 * DAY), retent(0xffffffff), false},
      {__LINE__, at_least("ssretentdur", 2 * DAY), retent(0xffffffff), true},
      {__LINE__, number_is("clretentdur", FOREVER), retent(0xffffffff), true},
  };
  for (const value_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    ss->totalsize = 5000;
    ss->level = 10;
    ss->savetime = 1000;
    ss->ssinsert = 2000;
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
      {__LINE__, text_is("client", {"mars", "venus"}), client("Venus"), false},
      {__LINE__, text_is("name", {"/home"}), name("/home \t\n"), true},
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
      {__LINE__, text_is("group", {"y"}), {{"group", {"X", "y"}}}, false},
      {__LINE__, text_is("group", {""}), {}, true},
      {__LINE__, text_is("group", {"x"}), {}, false},
      {__LINE__, text_is("group", {""}), {{"group", {""}}}, true},
      {__LINE__, text_is("group", {""}), {{"group", {"x"}}}, false},
      {__LINE__, text_is("group", {"x", ""}), {}, true},
      {__LINE__, text_is("ssbundle", {"b"}), {{"save set bundle", {"B"}}}, false},
      {__LINE__, text_is("ssbundle", {""}), {}, false},
      {__LINE__, text_is("annotation", {"ni.ht"}), {{"annotation", {"last NIGHT's"}}}, true},
      {__LINE__, text_is("annotation", {"^night"}), {{"annotation", {"last night"}}}, false},
      {__LINE__, text_is("annotation", {"x", "t$"}), {{"annotation", {"last night"}}}, true},
      {__LINE__, attr_keyword("dedupe", true), {{"*De-duplication", {"yes"}}}, true},
      {__LINE__, attr_keyword("dedupe", true), {{"*De-duplication", {"true"}}}, false},
      {__LINE__, attr_keyword("dedupe", false), {}, true},
      {__LINE__, attr_keyword("Zirrel", false), {{"*De-duplication", {"Yes"}}}, false},
      {__LINE__, attr_keyword("deviceless", true), {{"Deviceless backup", {"YES"}}}, true},
      {__LINE__, attr_keyword("deviceless", true), {{"Deviceless backup", {"No"}}}, false},
      {__LINE__, attr_keyword("deviceless", false), {{"Deviceless backup", {"Yes"}}}, true},
      {__LINE__, attr_keyword("deviceless", false), {}, false},
      {__LINE__, text_is("vmname", {"ALL_VM"}), {}, false},
      {__LINE__, text_is("vmname", {"WEB1"}), {{"*vm_name", {"web1"}}}, true},
      {__LINE__, text_is("vmname", {"ALL_VM", "x"}), {{"*vm_name", {"web1"}}}, false},
      {__LINE__, text_is("rdz", {"Zone"}), {{"*restricted data zone", {"zone"}}}, true},
      {__LINE__, text_is("rdz", {""}), {}, false},
      {__LINE__, at_least("ssprotect", 5), {{"*policy protection period", {"6"}}}, true},
      {__LINE__, at_most("ssprotect", 0), {}, true},
      {__LINE__, at_least("bhrltime", 5), {{"*policy action BH retention time", {"9:1 2"}}}, true},
      // Names of attributes by pattern.
      {__LINE__, attribute_name({"*name"}, 0), {{"*vm_name", {"x"}}}, false},
      {__LINE__, attribute_name({"VM_?ame"}, 1), {{"vm_name", {"x"}}}, true},
      {__LINE__, attribute_name({"vm_[mn]ame"}, 1), {{"vm_name", {}}}, false},
      {__LINE__, attribute_name({"*"}, 1), {{".hidden", {"x"}}}, false},
      {__LINE__, attribute_name({"a*"}, 1), {{"a/b", {"x"}}}, false},
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

}  // namespace
}  // namespace qvr
