// Attribute and value lists, their order and their texts.
#include "attrlist.h"

#include <gtest/gtest.h>

#include "debug_words.h"
#include "msg.h"

namespace qvr {
namespace {

std::string text_of(const attrlist &list) {
  std::string text;
  for (const attr_t &attr : list) {
    text += attr.name + "=";
    for (const std::string &value : attr.values) text += value + ",";
    text += ";";
  }
  return text;
}

TEST(attr_order, folds_letters_only) {
  // Each row stands below the next.
  const std::string_view rising[] = {"", "*a", "a", "AB", "abc", "b", "Z", "[", "_", "{", "\xc3"};
  for (std::size_t i = 0; i < std::size(rising); i++) {
    for (std::size_t j = 0; j < std::size(rising); j++) {
      SCOPED_TRACE(std::string(rising[i]) + " and " + std::string(rising[j]));
      int result = attr_name_cmp(rising[i], rising[j]);
      EXPECT_EQ(result < 0, i < j);
      EXPECT_EQ(result == 0, i == j);
    }
  }
  EXPECT_TRUE(attr_name_equal("Save Set", "sAVE sET"));
  EXPECT_FALSE(attr_name_equal("a{", "a["));
}

TEST(vallist, grows_in_order) {
  vallist list = vallist_new("b");
  std::size_t tail = 1;
  vallist_push(list, "a");
  vallist_add(list, "c");
  vallist_add2(&list, &tail, "d");
  EXPECT_EQ(list, vallist_build({"a", "b", "c", "d"}));
  EXPECT_EQ(tail, 4u);
  vallist empty;
  vallist_add2(&empty, &tail, "x");  // a tail without a list
  vallist_add2(nullptr, &tail, "x");
  EXPECT_TRUE(empty.empty());

  EXPECT_FALSE(vallist_add_sorted(list, "B"));
  EXPECT_TRUE(vallist_add_sorted_exact(list, "B"));
  EXPECT_TRUE(vallist_add_sorted(list, "_"));
  EXPECT_EQ(list, vallist_build({"B", "a", "b", "c", "d", "_"}));
}

TEST(vallist, finds_sorts_and_tells) {
  vallist list = vallist_build({"b", "A", "c", "a", "B"});
  EXPECT_EQ(*vallist_find(list, "a"), "A");
  EXPECT_EQ(vallist_find(list, "x"), nullptr);
  EXPECT_TRUE(vallist_intersect(list, {"x", "C"}));
  EXPECT_FALSE(vallist_intersect(list, {"x"}));
  EXPECT_TRUE(vallist_intersect(list, {}));
  EXPECT_TRUE(vallist_intersect({}, {}));
  vallist exact = list;
  EXPECT_EQ(vallist_sort(list, nullptr, false), 5u);
  EXPECT_EQ(list, vallist_build({"A", "a", "b", "B", "c"}));
  EXPECT_EQ(vallist_sort(list, nullptr, true), 3u);
  EXPECT_EQ(list, vallist_build({"A", "b", "c"}));
  auto falling = [](const std::string &a, const std::string &b) { return b.compare(a); };
  vallist_sort(exact, falling, true);
  EXPECT_EQ(exact, vallist_build({"c", "b", "a", "B", "A"}));
  EXPECT_EQ(vallist_text(exact, 5), "c, b, a, B, A");
  EXPECT_EQ(vallist_text(exact, 2), "c, b, ...");
  EXPECT_EQ(vallist_text({}, 2), "<empty>");
}

TEST(attrlist, one_attribute_a_name) {
  attrlist list;
  attrlist_add(list, "b", "1");
  attrlist_add(list, "B", "2");
  attrlist_add(list, "a", "");
  attrlist_add(list, "c");
  attrlist_add(list, "c", std::string_view{});
  EXPECT_EQ(text_of(list), "a=,;b=1,2,;c=;");
  EXPECT_EQ(attrlist_set(list, "B", "3").name, "b");  // the name stays as it is written
  attrlist_set(list, "A", std::string_view{});
  attrlist_addv(list, "b", vallist_build({"4", "5"}));
  attrlist_set_take(list, "_d", vallist_build({"x", "y"}));
  EXPECT_EQ(text_of(list), "a=;b=3,4,5,;c=;_d=x,y,;");

  EXPECT_EQ(attrlist_find_exact(list, "B"), nullptr);
  EXPECT_EQ(attrlist_find(list, "B"), &list[1]);
  EXPECT_EQ(*attrlist_first(list, "_D"), "x");
  EXPECT_EQ(attrlist_first(list, "c"), nullptr);
  EXPECT_EQ(attrlist_first(list, "e"), nullptr);
  EXPECT_TRUE(attrlist_has(list, "_d", "Y"));
  EXPECT_FALSE(attrlist_has(list, "_d", "z"));
  EXPECT_TRUE(attrlist_has_any(list, "b", {"z", "5"}));
  EXPECT_FALSE(attrlist_has_any(list, "b", {}));
  EXPECT_TRUE(attrlist_remove(list, "C"));
  EXPECT_FALSE(attrlist_remove(list, "C"));
  EXPECT_EQ(text_of(list), "a=;b=3,4,5,;_d=x,y,;");
  // A value may lie in the list itself.
  attrlist_set(list, "b", *attrlist_first(list, "b"));
  attrlist_addv(list, "_d", list.back().values);
  EXPECT_EQ(text_of(list), "a=;b=3,;_d=x,y,x,y,;");
}

TEST(attrlist, build_merge_subset) {
  attrlist list = attrlist_build({{"b", {"1", "2"}}, {"a", {}}, {"B", {"3"}}, {"d", {"4"}}});
  EXPECT_EQ(text_of(list), "a=;b=1,2,3,;d=4,;");
  attrlist_merge(list, attrlist_build({{"_", {"u"}}, {"B", {"9"}}, {"c", {"8"}}}));
  EXPECT_EQ(text_of(list), "a=;B=9,;c=8,;d=4,;_=u,;");
  EXPECT_TRUE(attrlist_subset(attrlist_build({{"b", {"x", "9"}}, {"A", {"any"}}}), list));
  EXPECT_FALSE(attrlist_subset(attrlist_build({{"b", {"x"}}}), list));
  EXPECT_FALSE(attrlist_subset(attrlist_build({{"missing", {}}}), list));
  EXPECT_TRUE(attrlist_subset({}, {}));
  attrlist mixed = {{"b", {"1"}}, {"a", {}}, {"B", {"2"}}};
  attrlist_restore_order(mixed);
  EXPECT_EQ(text_of(mixed), "a=;b=1,;");
}

TEST(attr_text, packs_and_unpacks) {
  std::string text;
  testing::internal::CaptureStderr();
  debug_set_level(3);
  EXPECT_FALSE(attr_pack(attrlist_build({{"empty", {}}}), text));
  EXPECT_EQ(text, "");
  EXPECT_TRUE(attr_pack(attrlist_build({{"b", {"1", "2"}}, {"a", {"x y"}}, {"c", {}}}), text));
  EXPECT_EQ(text, "a: \"x y\"; b: \"1, ...\"; ");
  struct {
    int line;
    const char *text;
    const char *list;
  } rows[] = {
      {__LINE__, "a: \"x y\"; b: \"1, ...\"; ", "a=x y,;b=1, ...,;"},
      {__LINE__, "b: \"1\"; B: \"2\"; ", "b=2,;"},
      {__LINE__, "a: \"1\"; rest", "a=1,;"},
      {__LINE__, "a: \"1\"; b: \"not ended", "a=1,;"},
      {__LINE__, "a: \"\"; ", "a=,;"},
      {__LINE__, "a: \"x: \"y\"; ", "a=x: \"y,;"},
      {__LINE__, "nothing", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    attrlist list;
    EXPECT_EQ(attr_upack(row.text, list), nullptr);
    EXPECT_EQ(text_of(list), row.list);
  }
  debug_set_level(0);
  std::string told = testing::internal::GetCapturedStderr();
  for (const char *part : {"attr_pack al name: a.\n", "attr_pack al val: x y.\n",
                           "attr_pack str_outp: a: \"x y\"; b: \"1, ...\"; .\n",
                           "attr_upack str_in: a: \"\"; .\n", "attr_upack al_name: B.\n"})
    EXPECT_NE(told.find(part), std::string::npos) << part << told;
  attrlist list;
  const errobj_t *error = attr_upack("", list);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message.id, 86780);
  EXPECT_TRUE(err_is(error->code, 1, 22));
  list = attrlist_build({{"a", {}}});
  error = attr_upack("a: \"1\"; ", list);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message.id, 86781);
}

TEST(attr_text, quotes_what_needs_it) {
  struct {
    int line;
    const char *value;
    std::size_t limit;
    const char *text;
  } rows[] = {
      {__LINE__, "", 0, "\"\""},
      {__LINE__, "a b", 0, "a b"},
      {__LINE__, "a,b", 0, "\"a,b\""},
      {__LINE__, "a:b", 0, "\"a:b\""},
      {__LINE__, "a;b", 0, "\"a;b\""},
      {__LINE__, "a#b", 0, "\"a#b\""},
      {__LINE__, " a", 0, "\" a\""},
      {__LINE__, "a\t", 0, "\"a\t\""},
      {__LINE__, "say \"a\\b\"", 0, "\"say \\\"a\\\\b\\\"\""},
      {__LINE__, "a\n", 0, "\"a\""},
      {__LINE__, "a\nb", 0, "\"a\nb\""},
      {__LINE__, "abcdefgh", 3, "abc\\\ndef\\\ngh"},
      {__LINE__, "abcdef", 3, "abc\\\ndef"},
      {__LINE__, "日本語", 2, "日本\\\n語"},
      {__LINE__, "a\"bc", 3, "\"a\\\n\\\"b\\\nc\""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(attr_quote(row.value, row.limit), row.text);
  }
}

TEST(attr_text, prints_and_wraps) {
  const std::string margin(30, ' ');
  const std::string head = std::string(25, ' ') + "abc: ";
  const std::string v48(48, 'x'), v49(49, 'y'), v100(100, 'z');
  struct {
    int line;
    vallist values;
    std::size_t width;
    unsigned flags;
    std::string text;
  } rows[] = {
      {__LINE__, {}, 80, 0, head + ";\n"},
      {__LINE__, {"1", "a b", ""}, 80, 0, head + "1, a b, \"\";\n"},
      {__LINE__, {"1"}, 80, ATTR_PRINT_COMPACT, "abc: 1;\n"},
      {__LINE__, {"1", "2"}, 80, ATTR_PRINT_MASKED, head + "*******, *******;\n"},
      // 48 cells are the widest that stand on a line of 80; the second goes to the next.
      {__LINE__, {v48, "a"}, 80, 0, head + v48 + ", \n" + margin + "a;\n"},
      {__LINE__, {"a", v48}, 80, 0, head + "a, \n" + margin + v48 + ";\n"},
      {__LINE__,
       {std::string(40, 'a'), "bb", "cccc"},
       80,
       0,
       head + std::string(40, 'a') + ", bb, \n" + margin + "cccc;\n"},
      // Longer ones begin at the margin and break at the width.
      {__LINE__, {v49}, 80, 0, head + "\\\n" + v49 + ";\n"},
      {__LINE__,
       {v100, "b"},
       80,
       0,
       head + "\\\n" + v100.substr(0, 80) + "\\\n" + v100.substr(80) + ", b;\n"},
      {__LINE__, {"\n" + v49}, 80, 0, head + "\"\n" + v49 + "\";\n"},
      {__LINE__, {v100, "b"}, 10000, 0, head + v100 + ", b;\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string text;
    attr_print(text, row.width, {"abc", row.values}, 0, row.flags);
    EXPECT_EQ(text, row.text);
  }
}

TEST(attr_text, messages_and_passwords) {
  std::string encoded = strtxt_encode(*strtxt_create(0, "%s is %d", {{0, "x"}, {1, "5"}}));
  auto print = [](const attr_t &attr, unsigned flags) {
    std::string text;
    attr_print(text, 10000, attr, 0, flags | ATTR_PRINT_COMPACT);
    return text;
  };
  EXPECT_EQ(print({"stateI18N", {encoded}}, 0), "stateI18N: x is 5;\n");
  EXPECT_EQ(print({"stateI18N", {"no message"}}, 0), "stateI18N: no message;\n");
  EXPECT_EQ(print({"stateI18N", {strtxt_to_xml({5, "in XML", {}})}}, 0), "stateI18N: in XML;\n");
  EXPECT_EQ(print({"stateI18N", {encoded}}, ATTR_PRINT_RAW), "stateI18N: " + encoded + ";\n");
  EXPECT_EQ(print({"state", {encoded}}, 0), "state: " + encoded + ";\n");
  EXPECT_EQ(print({"state", {encoded}}, ATTR_PRINT_MESSAGES), "state: x is 5;\n");
  attr_t secret{"remote Password", {"geheim"}};
  EXPECT_EQ(print(secret, 0), "remote Password: geheim;\n");
  attr_mask_passwords(true);
  EXPECT_EQ(print(secret, 0), "remote Password: *******;\n");
  attr_mask_passwords(false);
}

}  // namespace
}  // namespace qvr
