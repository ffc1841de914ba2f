#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "dates.h"
#include "zone_guard.h"

using namespace qvr;
using qvr_test::local_text_of;
using qvr_test::local_time_of;
using qvr_test::zone_guard;

TEST(dates_values, deltas) {
  static constexpr struct {
    int line;
    std::uint32_t delta;
    std::int64_t base;
    std::int64_t wanted;
  } rows[] = {
      {__LINE__, 10, 100, 110},
      {__LINE__, 0xffffffff, 5, TIME_FOREVER},
      {__LINE__, 10, TIME_FOREVER_32, TIME_FOREVER},
      {__LINE__, 10, TIME_FOREVER, TIME_FOREVER},
      {__LINE__, 0xfffffffe, 5, TIME_SPECIAL},
      {__LINE__, 0xfffffffd, 5, TIME_SPECIAL},
      {__LINE__, 0xfffffffc, 5, 0x100000001},
      {__LINE__, 10, 0x7ffffffe, TIME_SPECIAL},
      {__LINE__, 10, 0x7ffffff5, 0x7ffffffe},
      {__LINE__, 11, 0x7ffffff5, 0x80000000},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(time_add(row.delta, row.base), row.wanted);
  }
  EXPECT_EQ(time_delta(TIME_FOREVER, 5), 0xffffffff);
  EXPECT_EQ(time_delta(TIME_FOREVER_32, 5), 0xffffffff);
  EXPECT_EQ(time_delta(0x100000004, 5), 0xfffffffe);
  EXPECT_EQ(time_delta(4, 5), 0xfffffffe);
  EXPECT_EQ(time_delta(15, 5), 10u);
  EXPECT_EQ(time_delta(std::numeric_limits<std::int64_t>::min(), 1), 0xfffffffe);
}

TEST(dates_values, order_and_limits) {
  EXPECT_EQ(time_cmp(TIME_FOREVER, TIME_FOREVER_32), 0);
  EXPECT_EQ(time_cmp(TIME_FOREVER_32, TIME_FOREVER_32 + 5), 1);
  EXPECT_EQ(time_cmp(5, TIME_FOREVER_32), -1);
  EXPECT_EQ(time_cmp(5, 4), 1);
  EXPECT_EQ(time_cmp(-5, 4), -1);
  EXPECT_EQ(time_to_32(-7), -1);
  EXPECT_EQ(time_to_32(TIME_FOREVER), 0x7fffffff);
  EXPECT_EQ(time_to_32(77), 77);
  EXPECT_FALSE(time_too_far(0));
  EXPECT_FALSE(time_too_far(TIME_FOREVER));
  EXPECT_FALSE(time_too_far(time_now() + 0xffffffffLL - 5));
  EXPECT_TRUE(time_too_far(time_now() + 0xffffffffLL + 5));
}

TEST(dates_values, end_of_day) {
  static constexpr struct {
    int line;
    const char *zone;
    const char *time;
    const char *wanted;
  } rows[] = {
      {__LINE__, "UTC", "2024-03-07 00:00:00", "2024-03-07 23:59:59"},
      {__LINE__, "UTC", "2024-03-07 23:59:59", "2024-03-07 23:59:59"},
      {__LINE__, "Europe/Berlin", "2024-03-31 01:00:00", "2024-03-31 23:59:59"},
      {__LINE__, "America/New_York", "2024-11-03 00:30:00", "2024-11-03 23:59:59"},
      {__LINE__, "Australia/Lord_Howe", "2024-04-07 00:30:00", "2024-04-07 23:59:59"},
      // The clock goes back over midnight: the day ends the second time.
      {__LINE__, "America/Havana", "2024-11-02 12:00:00", "2024-11-02 23:59:59"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    zone_guard guard(row.zone);
    std::int64_t time = local_time_of(row.time);
    EXPECT_EQ(local_text_of(time_end_of_day(time)), row.wanted);
    EXPECT_EQ(time_end_of_day_future(time), time);
  }
  EXPECT_EQ(time_end_of_day(TIME_FOREVER_32), TIME_FOREVER_32);
  EXPECT_EQ(time_end_of_day(TIME_FOREVER), TIME_FOREVER);
  std::int64_t soon = time_now() + 2 * 86400;
  EXPECT_EQ(time_end_of_day_future(soon), time_end_of_day(soon));
  EXPECT_EQ(time_end_of_day_future(time_now() + 80000) - time_now(), 80000);
}

TEST(dates_values, printed_forms) {
  zone_guard guard("Europe/Berlin");
  constexpr std::int64_t time = 1709818205;  // 2024-03-07 14:30:05 in Berlin
  constexpr std::int64_t none = TIME_FOREVER - 1;
  struct {
    int line;
    const char *(*form)(std::int64_t, std::span<char>);
    const char *wanted;
    const char *without;
    const char *forever;
  } const rows[] = {
      {__LINE__, date_short, " 3/07/24", " no date", "forever"},
      {__LINE__, date_time_short, " 3/07/24 14:30:05", "-----no time-----", "forever"},
      {__LINE__, date_time_long, "03/07/24 14:30:05", "-----no time-----", "forever"},
      {__LINE__, i18n_date_hhmm, "03/07/24 14:30", "-----no time-----", "01/19/38 04:14"},
      {__LINE__, date_time_log, "03/07/24 14:30:05", "no-time", "forever"},
      {__LINE__, date_time_file, "2024_03_07.14_30_05", "-----no time-----", "forever"},
      {__LINE__, date_only, "03/07/24", "no date", "forever"},
      {__LINE__, time_only, "14:30:05", "no time", "forever"},
      {__LINE__, weekday_time, "Thu 14:30:05", "", "Tue 04:14:07"},
      {__LINE__, date_iso_zone, "2024-03-07T14:30:05+0100", "", "2038-01-19T04:14:07+0100"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_STREQ(row.form(time, {}), row.wanted);
    EXPECT_STREQ(row.form(none, {}), row.without);
    EXPECT_STREQ(row.form(TIME_FOREVER_32, {}), row.forever);
    std::array<char, 601> room;
    EXPECT_EQ(row.form(time, room), room.data());
    EXPECT_STREQ(room.data(), row.wanted);
    std::array<char, 4> tight = {'x', 'x', 'x', 'x'};
    row.form(time, tight);
    EXPECT_LT(std::string_view(tight.data()).size(), tight.size());
  }
  EXPECT_STREQ(date_iso_utc(time, true), "20240307T133005Z");
  EXPECT_STREQ(date_iso_utc(time, false), "2024-03-07T13:30:05Z");
  EXPECT_STREQ(date_iso_local(time, true), "20240307T143005");
  EXPECT_STREQ(date_iso_local(time, false), "2024-03-07T14:30:05");
  std::array<char, 601> micro;
  EXPECT_FALSE(date_time_micro(std::span(micro).first(600)));
  ASSERT_TRUE(date_time_micro(micro));
  EXPECT_EQ(std::string_view(micro.data()).size(),
            std::string_view("03/07/24 14:30:05.123456").size());
}

TEST(dates_values, iso_reader) {
  zone_guard guard("America/New_York");
  static constexpr struct {
    int line;
    const char *text;
    std::int64_t wanted;
  } rows[] = {
      {__LINE__, "2024-03-07T14:30:05+0100", 1709818205},
      {__LINE__, "2024-03-07T06:00:05-0730", 1709818205},
      {__LINE__, "2024-3-7T6:0:5-730", 1709818205},
      {__LINE__, "20240307T133005Z", 1709818205},
      {__LINE__, "2024-03-07T13:30:05Z", 1709818205},
      {__LINE__, "20240307T083005", 1709818205},
      {__LINE__, "2024-03-07T08:30:05", 1709818205},
      {__LINE__, "2024-07-07T08:30:05", 1720355405},
      {__LINE__, "2024-03-07", 0},
      {__LINE__, "2024-13-07T13:30:05Z", 0},
      {__LINE__, "2024-02-30T13:30:05Z", 0},
      {__LINE__, "2024-03-07T24:30:05Z", 0},
      {__LINE__, "2024-03-07T13:30:05Zulu", 0},
      {__LINE__, "20240307T1330Z", 0},
      {__LINE__, "", 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(iso_getdate(row.text), row.wanted);
  }
}
