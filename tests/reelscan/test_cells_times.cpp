// Cells of times: three steps against the width, both forevers, and the day cache against strftime.

#include <gtest/gtest.h>

#include <clocale>
#include <ctime>
#include <random>

#include "cells.h"
#include "dates.h"
#include "made_locale.h"
#include "records_for_test.h"
#include "zone_guard.h"

namespace qvr {
namespace {

using namespace test;
using qvr_test::zone_guard;

constexpr std::int64_t MOMENT = 1709821845;  // 2024-03-07 14:30:45 UTC

std::string long_time(time_cells &times, std::int64_t time) {
  char buffer[700];
  cell_text out(buffer, sizeof buffer);
  times.rsc_long_time(time, out);
  return std::string(out.text());
}
std::string short_date(time_cells &times, std::int64_t time) {
  char buffer[700];
  cell_text out(buffer, sizeof buffer);
  times.rsc_short_date(time, out);
  return std::string(out.text());
}
std::string in_width(time_cells &times, std::int64_t time, std::int32_t width) {
  char buffer[700];
  cell_text out(buffer, sizeof buffer);
  times.cell(time, width, out);
  return std::string(out.text());
}

struct time_row {
  int line;
  std::int64_t time;
  std::int32_t width;
  const char *plain, *iso, *old_forever;
};

TEST(cell_times, three_steps_against_the_width) {
  zone_guard zone("UTC");
  const time_row rows[] = {
      {__LINE__, MOMENT, 24, "03/07/24 14:30:45", "2024-03-07T14:30:45", "03/07/24 14:30:45"},
      {__LINE__, MOMENT, 17, "03/07/24 14:30:45", "03/07/24 14:30", "03/07/24 14:30:45"},
      {__LINE__, MOMENT, 16, "03/07/24 14:30", "03/07/24 14:30", "03/07/24 14:30"},
      {__LINE__, MOMENT, 14, "03/07/24 14:30", "03/07/24 14:30", "03/07/24 14:30"},
      {__LINE__, MOMENT, 13, "03/07/24", "03/07/24", "03/07/24"},
      {__LINE__, MOMENT, 1, "03/07/24", "03/07/24", "03/07/24"},
      {__LINE__, 0, 9, "undef", "undef", "undef"},
      {__LINE__, 0, 10, "undefined ", "undefined ", "undefined "},
      {__LINE__, -7, 24, "undefined ", "undefined ", "undefined "},
      {__LINE__, 0x7fffffff, 9, "forever", "forever", "01/19/38"},
      {__LINE__, 0x7fffffff, 30, "forever", "2038-01-19T03:14:07", "(Tue Jan 19 03:14:07 2038\n)"},
      {__LINE__, 0x7fffffff, 15, "forever", "01/19/38 03:14", "01/19/38 03:14"},
      {__LINE__, INT64_MAX, 9, "forever", "forever", "forever"},
      {__LINE__, 4294967295, 9, "02/07/06", "02/07/06", "02/07/06"},
  };
  for (const time_row &row : rows) {
    SCOPED_TRACE(row.line);
    time_cells plain(false, false), iso(true, false), old_forever(false, true);
    EXPECT_EQ(in_width(plain, row.time, row.width), row.plain);
    EXPECT_EQ(in_width(iso, row.time, row.width), row.iso);
    EXPECT_EQ(in_width(old_forever, row.time, row.width), row.old_forever);
  }
  time_cells plain(false, false);
  EXPECT_EQ(long_time(plain, INT64_MAX - 1), "-----no time-----");
  EXPECT_EQ(short_date(plain, INT64_MAX - 1), "no date");
}

// The kept days and hours must give what the library gives, through changes of daylight time and
// in any order, with the clock of either locale and at every width.
TEST(cell_times, kept_days_agree_with_the_library) {
  test::made_locale american("en_US", "en_US.UTF-8");
  for (const char *locale : {"C", "en_US.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_TIME, locale), nullptr);
    std::mt19937_64 random(7);
    for (const char *place : {"UTC", "Europe/Berlin", "America/New_York", "Asia/Kolkata",
                              "Australia/Lord_Howe", "Africa/Monrovia"}) {
      zone_guard zone(place);
      time_cells times(false, false), iso(true, false);
      for (int i = 0; i < 10000; i++) {
        std::int64_t span = i % 2 == 0 ? 400 * std::int64_t{86400} : 0x80000000;
        auto time = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(span)) + 1;
        if (i % 7 == 0) time = static_cast<std::int64_t>(random() % 200000000000);
        if (i % 5 == 0) time = 1711846800 + static_cast<std::int64_t>(random() % 7200) - 3600;
        std::tm fields;
        auto seconds = static_cast<std::time_t>(time);
        localtime_r(&seconds, &fields);
        auto formatted = [&fields](const char *format) {
          char text[64];
// The three below.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
          return std::string(text, std::strftime(text, sizeof text, format, &fields));
#pragma GCC diagnostic pop
        };
        std::string whole = formatted("%x %X"), minutes = formatted("%x %H:%M"),
                    date = formatted("%x");
        auto width = static_cast<std::int32_t>(random() % 24 + 7);
        auto fits = [&](const std::string &text) {
          return static_cast<std::int32_t>(text.size()) <= width;
        };
        SCOPED_TRACE(std::string(place) + " " + std::to_string(time));
        ASSERT_EQ(long_time(iso, time), formatted("%Y-%m-%dT%H:%M:%S"));
        ASSERT_EQ(long_time(times, time), whole);
        ASSERT_EQ(short_date(times, time), date);
        ASSERT_EQ(in_width(times, time, width), fits(whole)     ? whole
                                                : fits(minutes) ? minutes
                                                                : date);
      }
    }
  }
  std::setlocale(LC_TIME, "C");
}

struct limit_row {
  int line;
  const char *word;
  std::uint32_t delta;
  attrlist attrs;
  const char *text;
};

TEST(cell_times, limits_of_a_save_set) {
  zone_guard zone("UTC");
  record_maker make;
  cell_renderer renderer({}, nullptr), old_forever({.old_forever = true}, nullptr);
  const limit_row rows[] = {
      {__LINE__, "ssbrowse", 86400, {}, "03/08/24 14:30:45"},
      {__LINE__, "ssretent", 86400, {}, "03/08/24 14:30:45"},
      {__LINE__, "ssexp", 86400, {}, "03/08/24 14:30:45"},
      {__LINE__, "clretent", 86400, {}, "03/08/24 14:30:45"},
      {__LINE__, "ssbrowse", 0, {}, "03/07/24 14:30:45"},
      {__LINE__, "ssexp", 0, {}, "undefined "},
      {__LINE__, "clretent", 0, {}, "undefined "},
      {__LINE__, "ssbrowse", 0xffffffff, {}, "02/07/06 06:28:15"},
      {__LINE__, "ssretent", 0xffffffff, {}, "02/07/06 06:28:15"},
      {__LINE__, "ssexp", 0xffffffff, {}, "forever"},
      {__LINE__, "clretent", 0xffffffff, {}, "forever"},
      {__LINE__, "ssbrowse", 5, {{"*QVR_OLD_FOREVER_BROWSE_TIME", {"Yes"}}}, "forever"},
      {__LINE__, "ssbrowse", 5, {{"*QVR_NEW_FOREVER_BROWSE_TIME", {"Yes"}}}, "forever"},
      {__LINE__, "ssretent", 5, {{"*QVR_OLD_FOREVER_TIME", {"Yes"}}}, "forever"},
      {__LINE__, "ssretent", 5, {{"*QVR_NEW_FOREVER_TIME", {"Yes"}}}, "forever"},
      {__LINE__, "ssretent", 5, {{"*QVR_NEW_FOREVER_TIME", {"No"}}}, "03/07/24 14:30:50"},
      {__LINE__, "clretent", 5, {{"*QVR_OLD_FOREVER_TIME", {"Yes"}}}, "03/07/24 14:30:50"},
  };
  for (const limit_row &row : rows) {
    SCOPED_TRACE(row.line);
    ss_t *ss = make.save_set(1);
    ss->ssinsert = MOMENT;
    ss->ssbrowse = ss->ssretent = row.delta;
    ss->attrs = make.attrs(row.attrs);
    char buffer[64];
    renderer.rpt_render(column(row.word, 24), {.ss = ss}, buffer, sizeof buffer);
    EXPECT_STREQ(buffer, row.text);
  }
  ss_t *ss = make.save_set(1);
  ss->ssinsert = MOMENT;
  ss->ssretent = 5;
  ss->attrs = make.attrs({{"*QVR_OLD_FOREVER_TIME", {"Yes"}}});
  char buffer[64];
  old_forever.rpt_render(column("clretent", 40), {.ss = ss}, buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "(Tue Jan 19 03:14:07 2038\n)");
}

}  // namespace
}  // namespace qvr
