#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <random>
#include <string>
#include <thread>

#include "debug_words.h"
#include "msg.h"
#include "msg_rings.h"

namespace qvr {
namespace {

TEST(msg_text, values_become_what_the_conversion_wants) {
  struct {
    int line;
    const char *format;
    int type;
    const char *value, *wanted;
  } rows[] = {{__LINE__, "%d", MSG_ARG_INT, "-12", "-12"},
              {__LINE__, "%d", MSG_ARG_TEXT, "x", "0"},
              {__LINE__, "%u", MSG_ARG_UINT, "0x10", "16"},
              {__LINE__, "%u", MSG_ARG_UINT, "010", "8"},
              {__LINE__, "%d", MSG_ARG_INT, "010", "10"},
              {__LINE__, "%lu", MSG_ARG_LONG, "18446744073709551615", "18446744073709551615"},
              {__LINE__, "%ld", MSG_ARG_LONG, "-9223372036854775808", "-9223372036854775808"},
              {__LINE__, "%lld", MSG_ARG_LONG, "5000000000", "5000000000"},
              {__LINE__, "%.2f", MSG_ARG_TEXT, "1.255e1", "12.55"},
              {__LINE__, "%c", MSG_ARG_CHAR, "q", "q"},
              {__LINE__, "%c", MSG_ARG_INT, "65", "A"},
              {__LINE__, "%p", MSG_ARG_TEXT, "0x1f", "0x1f"},
              {__LINE__, "%p", MSG_ARG_TEXT, "zz", "(nil)"},
              {__LINE__, "%s", MSG_ARG_TEXT, nullptr, "null"},
              {__LINE__, "%5s|", MSG_ARG_HOST, "ab", "   ab|"},
              {__LINE__, "%s", MSG_ARG_ATTR, "345:Authentication error", "Authentication error"},
              {__LINE__, "%s", MSG_ARG_ATTR, "name", "name"},
              {__LINE__, "%s", MSG_ARG_ATTR, "a:b", "a:b"},
              {__LINE__, "%s", MSG_ARG_ENCODED, "0 8 in: [%s] 1 12 4 mars", "in: [mars]"},
              {__LINE__, "[%s]", MSG_ARG_ENCODED, "not encoded", "[]"},
              {__LINE__, "%s", MSG_ARG_ENCODED, "<MSG id=\"0\" form=\"one\" argcount=\"0\"> </MSG>",
               "one"}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.line);
    EXPECT_STREQ(msg_text(0, nullptr, r.format, {{r.type, r.value}}), r.wanted);
    if (r.value == nullptr) continue;
    strtxt_t stored{0, r.format, {{r.type, r.value}}};
    EXPECT_STREQ(msg_render(nullptr, stored), r.wanted);
  }
  EXPECT_STREQ(msg_text(0, nullptr, "%2$s %1$s", {{0, "a"}, {0, "b"}}), "b a");
  EXPECT_STREQ(msg_text(0, nullptr, "%s %s", {{0, "a"}}), "a null");
}

TEST(msg_text, long_texts_are_cut_at_a_character) {
  std::string wide;
  while (wide.size() < 20000) wide += "\xc3\xa4";
  std::string text = msg_text(0, nullptr, "a%s", {{0, wide}});
  EXPECT_EQ(text.size(), 18431u);
  text = msg_text(0, nullptr, "ab%s", {{0, wide}});
  EXPECT_EQ(text.size(), 18430u);
  EXPECT_STREQ(msg_render(nullptr, strtxt_t{0, "a" + wide, {}}),
               ("a" + wide).substr(0, 18431).c_str());
}

TEST(msg_text, nested_messages_end_at_a_depth) {
  std::string encoded = "0 1 x";
  for (int i = 0; i < 12; i++) {
    encoded = "0 4 (%s) 1 49 " + std::to_string(encoded.size()) + " " + encoded;
  }
  strtxt_t message;
  ASSERT_TRUE(strtxt_decode(encoded, message));
  EXPECT_STREQ(msg_render(nullptr, message), "((((((((()))))))))");
}

TEST(msg_text, rings_hold_what_they_promise) {
  const char *first = msg_arg_int(1);
  for (int i = 0; i < 199; i++) msg_arg_uint(7);
  EXPECT_STREQ(first, "1");
  EXPECT_EQ(msg_arg_char('z'), first);
  EXPECT_STREQ(msg_arg_ulong(18446744073709551615ul), "18446744073709551615");
  EXPECT_STREQ(msg_arg_long(-5), "-5");
  const char *large = msg_text(0, nullptr, "kept");
  for (int i = 0; i < 49; i++) msg_text(0, nullptr, "x");
  EXPECT_STREQ(large, "kept");
  std::thread([&] { EXPECT_NE(msg_arg_int(1), first); }).join();
}

TEST(strtxt, pool_setting_is_told_once) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct {
    const char *setting;
    std::size_t slots;
    const char *told;
  } rows[] = {{"63", 32, "leaving poolsize as 32"},
              {"64", 64, "setting poolsize to 64"},
              {"127", 64, "setting poolsize to 64"},
              {"128", 128, "setting poolsize to 128"}};
  for (const auto &r : rows) {
    EXPECT_EXIT(
        {
          setenv("MSG_STRUCTURED_TEXT_POOL_SIZE", r.setting, 1);
          strtxt_t *first = strtxt_create(1, "x");
          for (std::size_t i = 1; i < r.slots; i++) strtxt_create(1, "x");
          _exit(strtxt_create(1, "x") == first ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        std::string("^[^\n]*Env MSG_STRUCTURED_TEXT_POOL_SIZE set to ") + r.setting + ", " +
            r.told + "\n$");
  }
}

TEST(strtxt, encodes_and_decodes) {
  strtxt_t *made = strtxt_create(7, "a %s b %d", {{MSG_ARG_HOST, "m\nx "}, {1, ""}});
  std::string text = strtxt_encode(*made);
  EXPECT_EQ(text, "7 9 a %s b %d 2 12 4 m\nx  1 0 ");
  strtxt_t back;
  ASSERT_TRUE(strtxt_decode(text, back));
  EXPECT_EQ(back.id, 7);
  EXPECT_EQ(back.args[0].text, "m\nx ");
  EXPECT_EQ(back.args[1].type, 1);
  EXPECT_EQ(strtxt_encode(back), text);
  // Each proper beginning but the one without arguments is refused.
  for (std::size_t size = 0; size < text.size(); size++) {
    SCOPED_TRACE(size);
    EXPECT_EQ(strtxt_decode(std::string_view(text).substr(0, size), back), size == 13);
  }
  std::string longest(3000, 'v');
  made = strtxt_create(1, "%s", {{0, longest}});
  EXPECT_EQ(strtxt_encode_cut(*made), "1 2 %s 1 0 2047 " + longest.substr(0, 2047));
  EXPECT_EQ(strtxt_encode(*made), "1 2 %s 1 0 3000 " + longest);
  char buffer[40];
  EXPECT_EQ(strtxt_encode_to(*made, buffer, sizeof buffer), 28u);
  EXPECT_STREQ(buffer, "0 23 stbuf overflow, msgID:1");
  EXPECT_EQ(strtxt_encode_to({7, "fits", {}}, buffer, sizeof buffer), 8u);
  EXPECT_STREQ(buffer, "7 4 fits");
  EXPECT_EQ(strtxt_encode_to({7, "fits", {}}, buffer, 0), 0u);
  EXPECT_EQ(strtxt_encode_text("plain"), "0 5 plain");
  EXPECT_EQ(strtxt_encode_text(longest), "0 2047 " + longest.substr(0, 2047));
  EXPECT_EQ(strtxt_encode_entry("345:Some text"), "345 9 Some text");
  for (std::string none : {"no id", "345", "345 id"})
    EXPECT_EQ(strtxt_encode_entry(none), "0 " + std::to_string(none.size()) + " " + none);
}

TEST(strtxt, refuses_what_is_not_encoded) {
  std::string big(24577, 'x');
  const std::string rows[] = {"",
                              "1",
                              "x 1 a",
                              "1 0 ",
                              "1 -1 a",
                              "1 2 a",
                              "1 1 ab",
                              "1 2 %s 0",
                              "1 2 %s 2 0 1 a 0 1 b",
                              "1 2 %s 1 0 1 ab",
                              "1 2 %s 1 0 1 a ",
                              "1 2 %s 1 0 99999999999999999999 a",
                              "1 2 %s 1 0 -1 a",
                              "99999999999 1 a",
                              "1 24577 " + big,
                              "1 2 %s 1 0 24577 " + big};
  for (const std::string &text : rows) {
    SCOPED_TRACE(text.substr(0, 40));
    strtxt_t out{-1, "untouched", {}};
    EXPECT_FALSE(strtxt_decode(text, out));
    EXPECT_EQ(out.format, "untouched");
  }
  strtxt_t out;
  EXPECT_TRUE(strtxt_decode("1 24576 " + big.substr(1), out));
  EXPECT_TRUE(strtxt_decode("-3 2 %s", out));  // no arguments: the format stands as it is
  EXPECT_STREQ(msg_render(nullptr, out), "%s");
}

TEST(strtxt, null_values_are_told_and_stored) {
  testing::internal::CaptureStderr();
  strtxt_t *made = strtxt_create(7, "%s %s", {{12, static_cast<const char *>(nullptr)}});
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "passing null into one of the msg creation calls with msg id 7\n");
  ASSERT_EQ(made->args.size(), 2u);
  EXPECT_EQ(made->args[0].type, 0);
  EXPECT_EQ(made->args[0].text, "null");
  EXPECT_EQ(made->args[1].text, "null");
}

TEST(strtxt, xml_both_ways) {
  strtxt_t *made = strtxt_create(7, "<%s> & '%d'", {{12, "\"a&amp;b\""}, {1, "3"}});
  std::string text = strtxt_to_xml(*made);
  EXPECT_EQ(text,
            "<MSG id=\"7\" form=\"&lt;%s&gt; &amp; &apos;%d&apos;\" argcount=\"2\">  <MSGARGS> "
            " <MSGARG arg=\"&quot;a&amp;amp;b&quot;\" argdesc=\"12\"/> "
            " <MSGARG arg=\"3\" argdesc=\"1\"/>  </MSGARGS> </MSG>");
  EXPECT_EQ(strtxt_to_xml({5, "x", {}}), "<MSG id=\"5\" form=\"x\" argcount=\"0\"> </MSG>");
  strtxt_t *back = strtxt_from_xml(text);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(strtxt_encode(*back), strtxt_encode(*made));
  EXPECT_STREQ(msg_render_xml(nullptr, text + strtxt_to_xml({5, "second", {}})),
               "second, <\"a&amp;b\"> & '3'");
  EXPECT_STREQ(msg_render_xml(nullptr, "no xml"), "");
  // Up to the last part that is wanted every beginning is refused.
  std::size_t last = text.find("argdesc=\"1\"") + std::string("argdesc=\"1\"").size();
  for (std::size_t size = 0; size < text.size(); size++) {
    SCOPED_TRACE(size);
    EXPECT_EQ(strtxt_from_xml(std::string_view(text).substr(0, size)) != nullptr, size >= last);
  }
}

TEST(strtxt, overwritten_slots_are_told_at_level_9) {
  std::thread([] {
    strtxt_t *first = strtxt_create(11, "x");
    for (int i = 0; i < 31; i++) strtxt_release(strtxt_create(12, "x"));
    EXPECT_EQ(first->id, 11);
    testing::internal::CaptureStderr();
    debug_set_level(9);
    strtxt_create(13, "x");
    strtxt_create(14, "x");
    debug_set_level(0);
    std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told, "freeing unused structext with msgid 11\n");
  }).join();
}

}  // namespace
}  // namespace qvr
