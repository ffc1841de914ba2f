// Flag letters and names, retention and per-clone values of records.
#include <gtest/gtest.h>

#include "clone_attrs.h"
#include "clone_retention.h"
#include "dates.h"
#include "ss_flags.h"

namespace qvr {
namespace {

TEST(flags, letters) {
  struct {
    int line;
    std::uint32_t flags;
    const char *save_set;
    const char *clone;
  } rows[] = {
      {__LINE__, 0, "", ""},
      {__LINE__, 0x104, "vF", ""},
      {__LINE__, 0x1, "I", ""},
      {__LINE__, 0x2, "?", ""},
      {__LINE__, 0x3, "I", ""},
      {__LINE__, 0x7, "F", ""},
      {__LINE__, 0x8, "?", ""},
      {__LINE__, 0x200, "r", "a"},
      {__LINE__, 0x10000, "i", "i"},
      {__LINE__, 0x10004, "iF", "a"},
      {__LINE__, 0x10200, "ri", "a"},
      {__LINE__, 0x10005, "iF", "i"},
      {__LINE__, 0x80a1000, "EsoT", "EsoT"},
      {__LINE__, 0xffffffff, "CvrENisRMNsokTPK?", "aEsoT"},
      {__LINE__, 0x400, "", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(ss_flag_letters(row.flags, flag_letters::save_set), row.save_set);
    EXPECT_EQ(ss_flag_letters(row.flags, flag_letters::clone), row.clone);
  }
}

TEST(flags, volume_names_and_state) {
  EXPECT_STREQ(vol_flagname(~std::uint32_t{0x1}), "full");
  EXPECT_STREQ(vol_flagname(~std::uint32_t{0x10}), "recyclable");
  EXPECT_STREQ(vol_flagname(~std::uint32_t{0x20}), "readonly");
  EXPECT_STREQ(vol_flagname(~std::uint32_t{0x200}), "manual-recyclable");
  for (std::uint32_t other : {~std::uint32_t{0x2}, ~std::uint32_t{0x11}, std::uint32_t{0x1}})
    EXPECT_STREQ(vol_flagname(other), "unknown");
  struct {
    int line;
    std::uint32_t flags;
    std::int64_t hold;
    const char *text;
  } rows[] = {
      {__LINE__, 0, 0, "  "},          {__LINE__, 0x10, 0, "E "},
      {__LINE__, 0x210, 0, "X "},      {__LINE__, 0x200, 0x7fffffff, "MA"},
      {__LINE__, 0, 0x7fffffff, " A"}, {__LINE__, 0, INT64_MAX, "  "},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    vol_t vol;
    vol.volflags = row.flags;
    vol.volhold = row.hold;
    EXPECT_EQ(vol_state_text(vol), row.text);
  }
}

TEST(flags, valid_copies) {
  clone_t clones[5] = {};
  std::uint32_t flags[] = {0x4, 0x4 | 0x20000, 0x4 | 0x1000, 0x4 | 0x10000, 0x204};
  for (int i = 0; i < 5; i++) clones[i].clflags = flags[i];
  ss_t ss;
  ss.clones = clones;
  ss.ncopies = 5;
  struct {
    int line;
    std::uint32_t flags;
    std::uint32_t copies;
  } rows[] = {
      {__LINE__, 0x4, 2},     {__LINE__, 0x304, 2},  {__LINE__, 0x0, 0},
      {__LINE__, 0x10004, 0}, {__LINE__, 0x1004, 0}, {__LINE__, 0x20004, 2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    ss.ssflags = row.flags;
    EXPECT_EQ(valid_copies(ss), row.copies);
  }
}

struct record_t {
  std::string series;
  ss_t ss;
  explicit record_t(const attrlist &attrs) : series(packed_attrs::pack(attrs)) {
    ss.attrs = packed_attrs(series);
  }
};

TEST(retention, of_clones) {
  record_t record(
      {{"*ss clone retention", {"5:100:10", " 6: 200: 4294967295", "7:300:0", "junk"}}});
  record.ss.ssinsert = 1000;
  record.ss.ssretent = 50;
  struct {
    int line;
    std::int64_t cloneid;
    std::int64_t time;
  } rows[] = {
      {__LINE__, 5, 110},
      {__LINE__, 6, TIME_FOREVER},
      {__LINE__, 7, 0},
      {__LINE__, 8, 1050},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    clone_t clone;
    clone.cloneid = row.cloneid;
    EXPECT_EQ(clone_retention_time(record.ss, &clone), row.time);
  }
  EXPECT_EQ(clone_retention_time(record.ss, nullptr), 1050);
  record.ss.ssretent = 0;
  EXPECT_EQ(clone_retention_time(record.ss, nullptr), 0);
}

TEST(retention, forever_by_attribute) {
  struct {
    int line;
    const char *name;
    const char *value;
    bool browse, retent;
  } rows[] = {
      {__LINE__, "*QVR_OLD_FOREVER_TIME", "Yes", false, true},
      {__LINE__, "*QVR_NEW_FOREVER_TIME", "Yes", false, true},
      {__LINE__, "*QVR_OLD_FOREVER_BROWSE_TIME", "Yes", true, false},
      {__LINE__, "*QVR_NEW_FOREVER_BROWSE_TIME", "Yes", true, false},
      {__LINE__, "*QVR_NEW_FOREVER_TIME", "No", false, false},
      {__LINE__, "group", "Yes", false, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    record_t record(attrlist{attr_t{row.name, {row.value}}});
    EXPECT_EQ(ss_browse_forever(record.ss), row.browse);
    EXPECT_EQ(ss_retent_forever(record.ss), row.retent);
  }
}

TEST(per_clone_values, found_by_clone_id) {
  record_t record({{"*policy name", {"Gold:10 11", "Silver:12", "12x:99", "None", "13:1"}}});
  struct {
    int line;
    std::int64_t cloneid;
    const char *first;  // null: no value
    std::size_t all;
  } rows[] = {
      {__LINE__, 10, "Gold", 1}, {__LINE__, 11, "Gold", 1}, {__LINE__, 12, "Silver", 1},
      {__LINE__, 1, "13", 1},    {__LINE__, 13, "13", 1},   {__LINE__, 0, nullptr, 0},
      {__LINE__, 99, "12x", 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    clone_t clone;
    clone.cloneid = row.cloneid;
    std::string_view found = clone_attr(&clone, record.ss, ATTR_POLICY);
    EXPECT_EQ(found.data() != nullptr, row.first != nullptr);
    EXPECT_EQ(found, row.first != nullptr ? row.first : "");
    EXPECT_EQ(clone_attr_all(&clone, record.ss, ATTR_POLICY).size(), row.all);
  }
  EXPECT_EQ(clone_attr(nullptr, record.ss, ATTR_POLICY), "Gold");
  EXPECT_EQ(clone_attr_all(nullptr, record.ss, ATTR_POLICY).size(), 5u);
  EXPECT_EQ(clone_attr(nullptr, record.ss, ATTR_WORKFLOW).data(), nullptr);
}

}  // namespace
}  // namespace qvr
