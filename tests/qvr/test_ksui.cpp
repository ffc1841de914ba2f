// Identifiers: their texts, their order and the readers of typed ids.
#include <gtest/gtest.h>

#include <random>

#include "ksui.h"
#include "ksui_new.h"
#include "posix_cksum.h"

namespace qvr {
namespace {

ksui words(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t e) {
  ksui id;
  std::uint32_t all[] = {a, b, c, d, e};
  for (int i = 0; i < 5; i++) id.set_word(i, all[i]);
  return id;
}

std::string long_text(const ksui &id) {
  return ksui_text(id, ksui_form::long_form);
}

// The sums are those of cksum(1) over the same bytes.
TEST(posix_cksum, known_sums) {
  EXPECT_EQ(posix_cksum(""), 4294967295u);
  EXPECT_EQ(posix_cksum("123456789"), 930766865u);
  EXPECT_EQ(posix_cksum(std::string(20, '\0')), 2699711059u);
}

TEST(ksui, texts_by_kind) {
  struct {
    int line;
    ksui id;
    std::string short_text;
    std::string long_tail;  // behind the checksum; empty: the long form is the short one
  } rows[] = {
      {__LINE__, ksui(), "0", ""},
      {__LINE__, ksui_invalid(), "4294967295", ""},
      {__LINE__, words(1, 12345, 0, 0, 0), "12345", ""},
      {__LINE__, words(2, 77, 3, 4, 0x7f000001), "77",
       "-00000002-0000004d-00000003-00000004-7f000001"},
      {__LINE__, words(3, 0xffffffff, 0, 0, 0), "4294967295",
       "-00000003-ffffffff-00000000-00000000-00000000"},
      {__LINE__, words(5, 1, 2, 3, 4), "1", "-00000005-00000001-00000002-00000003-00000004"},
      {__LINE__, words(6, 0xabcdef, 2, 3, 4), "11259375",
       "-00000006-00abcdef-00000002-00000003-00000004"},
      {__LINE__, words(9, 8, 0, 0, 0), "8", "-00000009-00000008-00000000-00000000-00000000"},
      {__LINE__, words(17, 1, 2, 3, 4), "4294967299",
       "-00000011-00000001-00000002-00000003-00000004"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(ksui_text(row.id, ksui_form::short_form), row.short_text);
    std::string text = long_text(row.id);
    if (row.long_tail.empty()) {
      EXPECT_EQ(text, row.short_text);
      continue;
    }
    ASSERT_EQ(text.size(), KSUI_LONG_LENGTH);
    EXPECT_EQ(text.substr(8), row.long_tail);
    ksui back;
    EXPECT_EQ(ksui_parse(text, back), row.id.kind());
    EXPECT_EQ(back, row.id);
  }
  ksui client = words(4, 1, 2, 3, 4);
  EXPECT_EQ(ksui_text(client, ksui_form::short_form), long_text(client));
}

TEST(ksui, text_in_a_small_buffer_is_cut) {
  char room[9];
  EXPECT_EQ(ksui_to_text(words(6, 1, 2, 3, 4), ksui_form::long_form, room), 8u);
  EXPECT_EQ(std::string(room), long_text(words(6, 1, 2, 3, 4)).substr(0, 8));
  EXPECT_EQ(ksui_to_text(ksui(), ksui_form::long_form, {}), 0u);
}

TEST(ksui, ring_holds_twenty_texts) {
  const char *first = ksui_ring_text(words(1, 1, 0, 0, 0), ksui_form::short_form);
  for (std::uint32_t i = 2; i <= 20; i++)
    ksui_ring_text(words(1, i, 0, 0, 0), ksui_form::short_form);
  EXPECT_STREQ(first, "1");
}

TEST(ksui, order_by_kind) {
  struct {
    int line;
    ksui a, b;
    int order;
  } rows[] = {
      {__LINE__, words(1, 12345, 0, 0, 0), words(3, 12345, 9, 9, 9), 0},
      {__LINE__, words(6, 12345, 1, 2, 3), words(1, 12345, 0, 0, 0), 0},
      {__LINE__, words(1, 0x80000000, 0, 0, 0), words(6, 1, 0, 0, 0), 1},
      {__LINE__, words(1, 1, 0, 0, 0), words(6, 2, 0, 0, 0), -1},
      {__LINE__, words(3, 5, 6, 7, 1), words(3, 5, 6, 7, 2), 0},
      {__LINE__, words(2, 5, 6, 7, 1), words(2, 5, 6, 8, 1), -1},
      {__LINE__, words(6, 5, 6, 7, 1), words(6, 5, 6, 7, 2), -1},
      {__LINE__, words(6, 5, 6, 7, 2), words(6, 5, 6, 7, 2), 0},
      {__LINE__, words(6, 5, 6, 7, 2), words(5, 5, 6, 7, 2), 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    EXPECT_EQ(sign(ksui_cmp(row.a, row.b)), row.order);
    EXPECT_EQ(sign(ksui_cmp(row.b, row.a)), -row.order);
  }
}

TEST(ksui, typed_texts) {
  std::string set = long_text(words(6, 42, 2, 3, 4)), vol = long_text(words(5, 42, 2, 3, 4)),
              old_set = long_text(words(3, 42, 2, 3, 0x7f000001)),
              client = long_text(words(4, 42, 2, 3, 4));
  std::string upper = set, damaged = set;
  for (char &c : upper) c = static_cast<char>(std::toupper(c));
  damaged[20] = damaged[20] == '0' ? '1' : '0';
  struct {
    int line;
    std::string text;
    std::int32_t kind;
    std::size_t left;  // behind the id
    bool ssid, volid, clientid;
    std::int64_t clone;
  } rows[] = {
      {__LINE__, "12345", 1, 0, true, true, false, 0},
      {__LINE__, " \t\n12345", 1, 0, true, true, false, 0},
      {__LINE__, "12345x", 1, 1, false, false, false, 0},
      {__LINE__, "12345 ", 1, 1, false, false, false, 0},
      {__LINE__, "4294967295", 1, 0, true, true, false, 0},
      {__LINE__, "4294967296", -1, 0, false, false, false, 0},
      {__LINE__, "99999999999999999999999", -1, 0, false, false, false, 0},
      {__LINE__, "", -1, 0, false, false, false, 0},
      {__LINE__, "-5", -1, 2, false, false, false, 0},
      {__LINE__, "mars", -1, 4, false, false, false, 0},
      {__LINE__, "12345/678", 1, 4, true, false, false, 678},
      {__LINE__, "12345 / 678", 1, 6, true, false, false, 678},
      {__LINE__, "12345/", 1, 1, false, false, false, 0},
      {__LINE__, "12345/678x", 1, 5, false, false, false, 0},
      {__LINE__, "12345/99999999999999999999", 1, 21, false, false, false, 0},
      {__LINE__, set, 6, 0, true, false, false, 0},
      {__LINE__, upper, 6, 0, true, false, false, 0},
      {__LINE__, set + "/7", 6, 2, true, false, false, 7},
      {__LINE__, old_set, 3, 0, true, false, false, 0},
      {__LINE__, vol, 5, 0, false, true, false, 0},
      {__LINE__, client, 4, 0, false, false, true, 0},
      {__LINE__, " " + client, 4, 0, false, false, false, 0},
      {__LINE__, client + "x", 4, 1, false, false, false, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    ksui id;
    std::string_view rest;
    EXPECT_EQ(ksui_parse(row.text, id, &rest), row.kind);
    EXPECT_EQ(id.kind(), row.kind);
    EXPECT_EQ(rest.size(), row.left);
    std::int64_t clone = -1;
    EXPECT_EQ(ssid_parse(row.text, id, &clone), row.ssid);
    EXPECT_EQ(id.is_invalid(), !row.ssid);
    EXPECT_EQ(clone, row.ssid ? row.clone : -1);
    EXPECT_EQ(volid_parse(row.text, id), row.volid);
    EXPECT_EQ(id.is_invalid(), !row.volid);
    EXPECT_EQ(clientid_parse(row.text, id), row.clientid);
  }
  // A wrong checksum leaves the decimal reading of the leading digits, which stops early.
  ksui id;
  EXPECT_FALSE(ssid_parse(damaged, id));
  EXPECT_TRUE(id.is_invalid());
  EXPECT_FALSE(ssid_parse("12345/678", id));  // no room for a clone id
}

// No single damaged character of a long form is taken for another identifier.
TEST(ksui, every_damaged_long_form_is_refused) {
  std::string good = long_text(words(6, 0x12345678, 0x9abcdef0, 7, 8));
  for (std::size_t at = 0; at < good.size(); at++) {
    for (char c : {'0', '7', 'f', '-', ' ', 'g', '\0'}) {
      std::string text = good;
      if (text[at] == c) continue;
      text[at] = c;
      ksui id;
      EXPECT_FALSE(ssid_parse(text, id)) << text;
    }
  }
}

TEST(ksui_new, signed_by_host_and_counter) {
  ksui a = ksui_new(KSUI_SAVESET, 99, 1700000000), b = ksui_new(KSUI_SAVESET, 99, 1700000000);
  EXPECT_EQ(a.kind(), KSUI_SAVESET);
  EXPECT_EQ(a.word(1), 99u);
  EXPECT_EQ(a.word(2), 1700000000u);
  EXPECT_EQ((b.word(3) >> 16) - (a.word(3) >> 16), 1u);
  EXPECT_EQ(a.word(3) & 0xffff, b.word(3) & 0xffff);
  EXPECT_EQ(a.word(4), b.word(4));
  ksui s = ksui_new_storage(0x123456789a, 5);
  EXPECT_EQ(ksui_text(s, ksui_form::short_form), std::to_string(0x123456789a));
}

}  // namespace
}  // namespace qvr
