// Cells of sizes, percents, flags, names and attributes: a record in memory, a width, a text.

#include <gtest/gtest.h>

#include "cell_attrs.h"
#include "cell_sizes.h"
#include "cells.h"
#include "records_for_test.h"
#include "ss_flags.h"

namespace qvr {
namespace {

using namespace test;

errobj_t *no_names(const ksui &, std::string &) {
  return nullptr;
}

class cells_test : public ::testing::Test {
 protected:
  std::string cell(std::string_view word, const cell_row_t &row, std::int32_t width = 0,
                   std::size_t room = 1025) {
    std::string buffer(room, '#');
    std::size_t size = renderer_.rpt_render(column(word, width), row, buffer.data(), room);
    EXPECT_EQ(buffer[size], '\0') << word;
    return buffer.substr(0, size);
  }

  record_maker make_;
  cell_renderer renderer_{{}, no_names};
};

struct size_row {
  int line;
  std::uint64_t value;
  const char *kilobytes, *bytes;
};

TEST(cell_sizes, keep_three_digits_and_a_decimal_unit) {
  const size_row rows[] = {
      {__LINE__, 0, "0 KB", "0 KB"},
      {__LINE__, 1, "1 KB", "1  B"},
      {__LINE__, 999, "999 KB", "999  B"},
      {__LINE__, 1000, "1000 KB", "1 KB"},
      {__LINE__, 1024, "1024 KB", "1 KB"},
      {__LINE__, 1025, "1025 KB", "2 KB"},
      {__LINE__, 9999, "9999 KB", "10 KB"},
      {__LINE__, 12345, "12 MB", "13 KB"},
      {__LINE__, 9999999, "9999 MB", "9766 KB"},
      {__LINE__, 10000000, "10 GB", "9766 KB"},
      {__LINE__, 99999999999, "99 TB", "97 GB"},
      {__LINE__, 12345678901234, "12 PB", "12 TB"},
      {__LINE__, 99999999999999999, "99 EB", "97 PB"},
      {__LINE__, UINT64_MAX, "18446 EB", "18 EB"},
  };
  for (const size_row &row : rows) {
    SCOPED_TRACE(row.line);
    char text[32];
    cell_text kilobytes(text, sizeof text);
    rsc_size_kb_text(row.value, kilobytes);
    EXPECT_EQ(kilobytes.text(), row.kilobytes);
    cell_text bytes(text, sizeof text);
    rsc_size_text(row.value, bytes);
    EXPECT_EQ(bytes.text(), row.bytes);
  }
}

struct used_row {
  int line;
  std::uint64_t written, capacity;
  std::uint32_t flags;
  const char *text;
};

TEST_F(cells_test, percent_used_shows_tenths_below_one_and_never_zero_for_something) {
  const used_row rows[] = {
      {__LINE__, 0, 0, 0, "0%"},
      {__LINE__, 5, 0, 0, "100%"},
      {__LINE__, 5, 1000, VOL_FULL, "full"},
      {__LINE__, 0, 1000, VOL_FULL, "full"},
      {__LINE__, 1, 1000000000, 0, "0.1%"},
      {__LINE__, 9, 1000, 0, "0.9%"},
      {__LINE__, 10, 1000, 0, "1%"},
      {__LINE__, 14, 1000, 0, "1%"},
      {__LINE__, 15, 1000, 0, "2%"},
      {__LINE__, 999, 1000, 0, "100%"},
      {__LINE__, 2000, 1000, 0, "100%"},
      {__LINE__, 49999, 99999, 0, "50%"},
      {__LINE__, 150000, 100000, 0, "100%"},
      {__LINE__, 54321, 100000, 0, "54%"},
  };
  for (const used_row &row : rows) {
    SCOPED_TRACE(row.line);
    vol_t *vol = make_.volume(1, "A");
    vol->written = row.written;
    vol->capacity = row.capacity;
    vol->volflags = row.flags;
    EXPECT_EQ(cell("%used", {.vol = vol}), row.text);
  }
}

struct vol_row {
  int line;
  const char *word;
  std::uint32_t flags, avail;
  const char *text;
};

TEST_F(cells_test, volumes) {
  const vol_row rows[] = {
      {__LINE__, "volume", VOL_WORM, 0, "TAPE.001(W)"},
      {__LINE__, "volid", 0, 0, "7"},
      {__LINE__, "state", VOL_RECYCLE, 0, "E "},
      {__LINE__, "state", VOL_MANUAL, 0, "M "},
      {__LINE__, "state", VOL_MANUAL | VOL_RECYCLE, 0, "X "},
      {__LINE__, "avail", 0, VOL_NEAR | VOL_SMARTMEDIA, "n"},
      {__LINE__, "avail", 0, VOL_SMARTMEDIA, "sm"},
      {__LINE__, "volflags", VOL_SCAN | VOL_READONLY | VOL_INUSE | VOL_FULL, 0, "drS"},
      {__LINE__, "volretent", VOL_RECYCLE | VOL_MANUAL, 0, "expired"},
      {__LINE__, "volretent", VOL_MANUAL, 0, "manual"},
      {__LINE__, "bhrltype", 0, 0, "None"},
      {__LINE__, "changes", 0, 0, "strange!"},
  };
  for (const vol_row &row : rows) {
    SCOPED_TRACE(row.line);
    vol_t *vol = make_.volume(7, "TAPE.001");
    vol->volflags = row.flags;
    vol->avail = row.avail;
    EXPECT_EQ(cell(row.word, {.vol = vol}), row.text);
  }
  const std::string long_name(251, 'x'), name_250(250, 'x');
  vol_t *held = make_.volume(7, long_name);
  held->volflags = VOL_WORM;
  held->volhold = VOL_HELD;
  EXPECT_EQ(cell("volume", {.vol = held}), long_name);
  EXPECT_EQ(cell("state", {.vol = held}), " A");
  vol_t *vol = make_.volume(7, name_250);
  vol->volflags = VOL_WORM;
  EXPECT_EQ(cell("volume", {.vol = vol}), name_250 + "(W)");
  vol->volattrs = make_.attrs({{"device", {"rd=node:/dev/nst0", "second"}}});
  EXPECT_EQ(cell("device", {.vol = vol}), "rd=node:/dev/nst0");
  EXPECT_EQ(cell("access_info", {.vol = vol}), "");
  EXPECT_EQ(cell("volattrs", {.vol = vol}), "device:rd=node:/dev/nst0, second");
}

TEST_F(cells_test, widths_choose_between_short_and_exact) {
  ss_t *ss = make_.save_set(41);
  ss->totalsize = 12345678;
  ss->ssretent = 86400 * 3 + 7200;
  EXPECT_EQ(cell("totalsize", {.ss = ss}, 9), "12 MB");
  EXPECT_EQ(cell("totalsize", {.ss = ss}, 10), "12345678");
  EXPECT_EQ(cell("ssretentdur", {.ss = ss}, 9), "P3D");
  EXPECT_EQ(cell("ssretentdur", {.ss = ss}, 10), "266400");
  ss->ssretent = 0xffffffff;
  EXPECT_EQ(cell("ssretentdur", {.ss = ss}, 10), "2147483647");
  EXPECT_EQ(cell("clretentdur", {.ss = ss}, 10), "2147483647");
  EXPECT_EQ(cell("ssid", {.ss = ss}, 52), "41");
  EXPECT_EQ(cell("ssid", {.ss = ss}, 53), ksui_text(ss->ssid, ksui_form::long_form));
  ss->clientid = id_of(9, KSUI_CLIENT);
  EXPECT_EQ(cell("clientid", {.ss = ss}, 5), ksui_text(ss->clientid, ksui_form::long_form));
  vol_t *vol = make_.volume(7, "A");
  make_.set_clones(*ss, {{100, {{8}}}});
  EXPECT_EQ(cell("volid", {vol, ss, &ss->clones[0], &ss->clones[0].frags[0], nullptr}), "8");
}

TEST_F(cells_test, levels_and_numbers_of_save_sets) {
  ss_t *ss = make_.save_set(1);
  ss->level = -2;
  EXPECT_EQ(cell("level", {.ss = ss}), "manual");
  ss->level = 15;
  EXPECT_EQ(cell("level", {.ss = ss}), "incr");
  ss->totalsize = 100;
  EXPECT_EQ(cell("backup_size", {.ss = ss}), "100  B");
  ss->attrs =
      make_.attrs({{"*vl_znod_backup_size", {"2048"}}, {"*policy protection period", {"x"}}});
  EXPECT_EQ(cell("backup_size", {.ss = ss}), "2 KB");
  EXPECT_EQ(cell("ssprotect", {.ss = ss}), "undef");
  ss->savetime = -5;
  EXPECT_EQ(cell("nsavetime", {.ss = ss}), "18446744073709551611");
  std::string long_client(2000, 'c');
  ss->client = long_client;
  EXPECT_EQ(cell("client", {.ss = ss}, 0, 32766).size(), 1024u);
  EXPECT_EQ(cell("client", {.ss = ss}, 0, 11), "cccccccccc");
}

struct span_row {
  int line;
  std::uint64_t totalsize;
  std::vector<frag_row> frags;
  std::size_t which;
  std::uint64_t fragsize, sumsize, last;
};

TEST_F(cells_test, sizes_on_a_volume) {
  constexpr std::uint64_t NEGATIVE = UINT64_MAX;
  const span_row rows[] = {
      {__LINE__, 1000, {{1}}, 0, 1000, 1000, 999},
      {__LINE__, 0, {{1}}, 0, 0, 0, 0},
      {__LINE__, 1000, {{1}, {2, 400}}, 0, 400, 400, 399},
      {__LINE__, 1000, {{1}, {2, 400}}, 1, 600, 600, 999},
      {__LINE__, 1000, {{1}, {2, 400}, {1, 900}}, 1, 500, 1000, 899},
      {__LINE__, 1000, {{1}, {2, 400}, {2, 700}, {3, 900}}, 2, 200, 500, 899},
      {__LINE__, 0, {{1}, {2, 400}, {2, 700}}, 2, 0, 300, 0},
      {__LINE__, 0, {{1}, {2, 400}}, 1, 0, 0, 0},
      {__LINE__, 300, {{1}, {2, 400}}, 1, 300, 0, 299},
      {__LINE__, 1000, {{1}, {2, 0}}, 0, 0, 0, NEGATIVE},
      {__LINE__, 1000, {{1, -100}}, 0, 1100, 1000, 999},
  };
  for (const span_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    ss->totalsize = row.totalsize;
    make_.set_clones(*ss, {{100, row.frags}});
    const clone_t &clone = ss->clones[0];
    const frag_t &frag = clone.frags[row.which];
    EXPECT_EQ(frag_size(*ss, clone, frag), row.fragsize);
    EXPECT_EQ(size_on_volume(*ss, clone, frag), row.sumsize);
    EXPECT_EQ(frag_last_byte(*ss, clone, frag), row.last);
  }
}

struct flag_row {
  int line;
  std::uint32_t ss, clone;
  bool first;
  const char *text;  // behind the letter of the place
};

TEST_F(cells_test, state_letters) {
  const flag_row rows[] = {
      {__LINE__, 0x4, 0, true, "b"},          {__LINE__, 0, 0, true, "i"},
      {__LINE__, 0x204, 0, true, "r"},        {__LINE__, 0x1004, 0, true, "E"},
      {__LINE__, 0x11000, 0, true, "E"},      {__LINE__, 0x11004, 0, true, "a"},
      {__LINE__, 0x10000, 0x1000, true, "E"}, {__LINE__, 0x10000, 0x1000, false, "i"},
      {__LINE__, 0x10000, 0x1004, true, "i"}, {__LINE__, 0x4, 0x1000, true, "E"},
      {__LINE__, 0x4, 0x1000, false, "b"},    {__LINE__, 0x4, 0x10000, false, "a"},
      {__LINE__, 0x0, 0x10000, false, "i"},   {__LINE__, 0x20004, 0, true, "?"},
      {__LINE__, 0x804, 0, true, "bk"},       {__LINE__, 0x200004, 0, true, "bN"},
      {__LINE__, 0x6304004, 0, true, "bN"},   {__LINE__, 0x104004, 0, true, "bR"},
      {__LINE__, 0x6004004, 0, true, "bP"},   {__LINE__, 0x2004004, 0, true, "bK"},
      {__LINE__, 0x4804, 0, true, "bkNs"},
  };
  for (const flag_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    make_.set_clones(*ss, {{100, {{1}}}, {200, {{1}}}});
    ss->ssflags = row.ss;
    const clone_t *clone = &ss->clones[row.first ? 0 : 1];
    ss->clones[row.first ? 0 : 1].clflags = row.clone;
    cell_row_t parts{nullptr, ss, clone, clone->frags, clone->frags};
    EXPECT_EQ(cell("sumflags", parts), std::string("c") + row.text);
    EXPECT_EQ(cell("fragflags", parts), std::string("c") + row.text);
  }
}

struct place_row {
  int line;
  std::vector<frag_row> frags;
  std::size_t which;
  const char *by_volume, *by_fragment;
};

TEST_F(cells_test, letters_of_the_place) {
  const place_row rows[] = {
      {__LINE__, {}, 0, " i", " i"},
      {__LINE__, {{1}}, 0, "ci", "ci"},
      {__LINE__, {{1}, {1}}, 0, "ci", "hi"},
      {__LINE__, {{1}, {2}}, 0, "hi", "hi"},
      {__LINE__, {{1}, {2}}, 1, "ti", "ti"},
      {__LINE__, {{1}, {2}, {3}}, 1, "mi", "mi"},
      {__LINE__, {{1}, {1}, {3}}, 1, "hi", "mi"},
      {__LINE__, {{1}, {2}, {1}}, 1, "ci", "mi"},
  };
  for (const place_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make_.save_set(1);
    make_.set_clones(*ss, {{100, row.frags}});
    const clone_t *clone = ss->clones;
    const frag_t *frag = row.frags.empty() ? nullptr : &clone->frags[row.which];
    EXPECT_EQ(cell("sumflags", {nullptr, ss, clone, frag, nullptr}), row.by_volume);
    EXPECT_EQ(cell("fragflags", {nullptr, ss, clone, frag, nullptr}), row.by_fragment);
  }
}

struct attrs_row {
  int line;
  std::size_t room;
  const char *text;
};

TEST_F(cells_test, an_attribute_text_that_does_not_fit_ends_in_plus) {
  const packed_attrs attrs =
      make_.attrs({{"*ss clone retention", {"1:2:3"}}, {"group", {"Default", "x"}}, {"none", {}}});
  const attrs_row rows[] = {
      {__LINE__, 1025, "group:Default, x; none:"},
      {__LINE__, 25, "group:Default, x; none:"},
      {__LINE__, 24, "group:Default, x; none+"},
      {__LINE__, 23, "group:Default, x; non+"},
      {__LINE__, 21, "group:Default, x; n+"},
      {__LINE__, 20, "group:Default, x; +"},
      {__LINE__, 19, "group:Default, x+"},
      {__LINE__, 17, "group:Default, +"},
      {__LINE__, 13, "group:Defau+"},
      {__LINE__, 6, "grou+"},
      {__LINE__, 2, "+"},
      {__LINE__, 1, ""},
  };
  for (const attrs_row &row : rows) {
    SCOPED_TRACE(row.line);
    std::string buffer(row.room, '#');
    cell_text out(buffer.data(), row.room);
    rsc_attrs_text(attrs, out);
    EXPECT_LT(out.size(), row.room);
    EXPECT_EQ(out.text(), row.text);
  }
}

TEST_F(cells_test, values_per_clone) {
  ss_t *ss = make_.save_set(1);
  make_.set_clones(*ss, {{100, {{1}}}, {200, {{1}}}});
  ss->ssinsert = 1000;
  ss->ssretent = 50;
  ss->attrs = make_.attrs({{"*policy name", {"Gold:100", "Silver:150 200"}},
                           {"*BH Retention Lock Mode", {"Governance:200"}},
                           {"*ss clone retention", {" 200: 5000: 77"}}});
  vol_t *vol = make_.volume(1, "A");
  cell_row_t first{vol, ss, &ss->clones[0], nullptr, nullptr};
  cell_row_t second{vol, ss, &ss->clones[1], nullptr, nullptr};
  EXPECT_EQ(cell("policy", first), "Gold");
  EXPECT_EQ(cell("policy", second), "Silver");
  EXPECT_EQ(cell("policy", {vol, ss, nullptr, nullptr, nullptr}), "Gold");
  EXPECT_EQ(cell("bhrltype", first), "None");
  EXPECT_EQ(cell("bhrltype", second), "Governance");
  EXPECT_EQ(cell("clretentdur", first, 20), "50");
  EXPECT_EQ(cell("clretentdur", second, 20), "77");
}

std::string asked;
errobj_t *known_name(const ksui &id, std::string &name) {
  asked += ksui_text(id, ksui_form::short_form) + ";";
  if (id.word(1) == 2) return nullptr;
  name = "venus";
  return nullptr;
}

TEST(cell_names, an_identifier_behind_a_colon_shows_the_client) {
  record_maker make;
  const std::string id = ksui_text(id_of(5, KSUI_CLIENT), ksui_form::long_form);
  const std::string unknown = ksui_text(id_of(2, KSUI_CLIENT), ksui_form::long_form);
  const std::string save_set = ksui_text(id_of(5), ksui_form::long_form);
  struct name_row {
    int line;
    std::string name, shown;
  };
  const name_row rows[] = {
      {__LINE__, "/home", "/home"},
      {__LINE__, "index:" + id, "index:venus"},
      {__LINE__, "<3>index:" + id + "/rest", "<3>index:venus/rest"},
      {__LINE__, "a:" + id, "a:venus"},
      {__LINE__, "dinex:" + id, "dinex:" + id},
      {__LINE__, "infex:" + id, "infex:" + id},
      {__LINE__, "index:mars", "index:mars"},
      {__LINE__, "index:" + save_set, "index:" + save_set},
      {__LINE__, "index:" + unknown, "index:" + unknown},
  };
  mapped_names names(known_name);
  for (const name_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make.save_set(1, "mars", row.name);
    EXPECT_EQ(names.name_of(*ss), row.shown);
    EXPECT_EQ(ss->name, row.shown) << "the record keeps it";
  }
}

TEST(cell_linear, a_stored_value_is_marked_when_it_is_cut) {
  cell_renderer renderer({.linear = true}, no_names);
  report_column_t stored;
  char buffer[8];
  EXPECT_EQ(renderer.rpt_render(stored, {}, buffer, sizeof buffer), 0u);
  stored.rc_value = "1234567";
  EXPECT_EQ(renderer.rpt_render(stored, {}, buffer, sizeof buffer), 7u);
  EXPECT_STREQ(buffer, "1234567");
  stored.rc_value = "12345678";
  EXPECT_EQ(renderer.rpt_render(stored, {}, buffer, sizeof buffer), 7u);
  EXPECT_STREQ(buffer, "12345+\n");
}

}  // namespace
}  // namespace qvr
