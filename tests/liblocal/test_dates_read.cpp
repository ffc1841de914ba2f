#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "dates.h"
#include "zone_guard.h"

using namespace qvr;
using qvr_test::local_text_of;
using qvr_test::local_time_of;
using qvr_test::zone_guard;

namespace {

constexpr const char *zones[] = {"UTC", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe"};

struct read_row {
  int line;
  const char *text;
  const char *wanted;  // local time; null: the text means no time
};

void check(const char *base_text, const read_row &row) {
  std::int64_t base = local_time_of(base_text);
  std::int64_t got = qvr_getdate_from(row.text, base);
  if (row.wanted == nullptr) {
    EXPECT_EQ(got, -1) << row.text << " gives " << local_text_of(got);
  } else {
    EXPECT_EQ(local_text_of(got), row.wanted) << row.text;
  }
}

}  // namespace

// The same in every zone: a Wednesday in July.
TEST(dates_read, forms) {
  static constexpr read_row rows[] = {
      {__LINE__, "", "2024-07-17 10:25:30"},
      {__LINE__, "now", "2024-07-17 10:25:30"},
      // numbers
      {__LINE__, "1400", "2024-07-17 14:00:00"},
      {__LINE__, "2359", "2024-07-17 23:59:00"},
      {__LINE__, "1960", nullptr},
      {__LINE__, "-5", nullptr},
      {__LINE__, "1400 0930", nullptr},
      {__LINE__, "14:30 mar 7 2023", "2023-03-07 14:30:00"},
      {__LINE__, "mar 7 2023", "2024-03-07 20:23:00"},
      // times
      {__LINE__, "2 pm", "2024-07-17 14:00:00"},
      {__LINE__, "2:30:15 a.m.", "2024-07-17 02:30:15"},
      {__LINE__, "12:30 am", "2024-07-17 00:30:00"},
      {__LINE__, "12:30 P.M", "2024-07-17 12:30:00"},
      {__LINE__, "14:30:59", "2024-07-17 14:30:59"},
      {__LINE__, "13 am", nullptr},
      {__LINE__, "0:30 am", nullptr},
      {__LINE__, "24:00", nullptr},
      {__LINE__, "14:60", nullptr},
      {__LINE__, "14:30:60", nullptr},
      {__LINE__, "14:30 15:30", nullptr},
      {__LINE__, "mar 7 14:30 2023", "2023-03-07 14:30:00"},
      {__LINE__, "mar 7 14:30:05 2023", "2023-03-07 14:30:05"},
      // dates
      {__LINE__, "3/7", "2024-03-07 00:00:00"},
      {__LINE__, "3/7/2023", "2023-03-07 00:00:00"},
      {__LINE__, "3/7/-2023", "2023-03-07 00:00:00"},
      {__LINE__, "3/7/23", "2023-03-07 00:00:00"},
      {__LINE__, "3/7/123", "2023-03-07 00:00:00"},
      {__LINE__, "3/7/2023 14:30", "2023-03-07 14:30:00"},
      {__LINE__, "14:30 3/7/2023", "2023-03-07 14:30:00"},
      {__LINE__, "14:30:05 3/7/2023", "2023-03-07 14:30:05"},
      {__LINE__, "March 7", "2024-03-07 00:00:00"},
      {__LINE__, "march seventh, 2023", "2023-03-07 00:00:00"},
      {__LINE__, "7 mar. 2023", "2023-03-07 00:00:00"},
      {__LINE__, "seventh march 2023", "2023-03-07 00:00:00"},
      {__LINE__, "7 mar 14:30", "2024-03-07 14:30:00"},
      {__LINE__, "sept 7, 2023", "2023-09-07 00:00:00"},
      {__LINE__, "2/29/2024", "2024-02-29 00:00:00"},
      {__LINE__, "2/29/2023", nullptr},
      {__LINE__, "13/1/2024", nullptr},
      {__LINE__, "0/1/2024", nullptr},
      {__LINE__, "4/31/2024", nullptr},
      {__LINE__, "3/7/2023 3/8/2023", nullptr},
      {__LINE__, "1/1/2161", nullptr},
      // days of the week
      {__LINE__, "monday", "2024-07-22 00:00:00"},
      {__LINE__, "mon", "2024-07-22 00:00:00"},
      {__LINE__, "mon.", "2024-07-22 00:00:00"},
      {__LINE__, "thu, 14:30", "2024-07-18 14:30:00"},
      {__LINE__, "tues", "2024-07-23 00:00:00"},
      {__LINE__, "TUESDAY", "2024-07-23 00:00:00"},
      {__LINE__, "wednesday", "2024-07-24 00:00:00"},
      {__LINE__, "first wednesday", "2024-07-24 00:00:00"},
      {__LINE__, "this wednesday", "2024-07-17 00:00:00"},
      {__LINE__, "next monday", "2024-07-22 00:00:00"},
      {__LINE__, "second monday", "2024-07-29 00:00:00"},
      {__LINE__, "last friday", "2024-07-12 00:00:00"},
      {__LINE__, "3/7/2023 monday", "2023-03-07 00:00:00"},
      {__LINE__, "monday tuesday", nullptr},
      // relative
      {__LINE__, "today", "2024-07-17 00:00:00"},
      {__LINE__, "yesterday", "2024-07-16 00:00:00"},
      {__LINE__, "yesterday 14:30", "2024-07-16 14:30:00"},
      {__LINE__, "tomorrow", "2024-07-18 00:00:00"},
      {__LINE__, "5 weeks ago", "2024-06-12 10:25:30"},
      {__LINE__, "35 days ago", "2024-06-12 10:25:30"},
      {__LINE__, "2 fortnights ago", "2024-06-19 10:25:30"},
      {__LINE__, "3 days ago 00:00", "2024-07-14 00:00:00"},
      {__LINE__, "0 days ago 00:00", "2024-07-17 00:00:00"},
      {__LINE__, "-3 days", "2024-07-14 10:25:30"},
      {__LINE__, "+ 3 days", "2024-07-20 10:25:30"},
      {__LINE__, "0x10 hours", "2024-07-18 02:25:30"},
      {__LINE__, "90 secs ago", "2024-07-17 10:24:00"},
      {__LINE__, "third day", "2024-07-19 10:25:30"},
      {__LINE__, "hour", "2024-07-17 11:25:30"},
      {__LINE__, "1 day ago ago", "2024-07-18 10:25:30"},
      {__LINE__, "1 day 2 hours ago", "2024-07-16 08:25:30"},
      {__LINE__, "1 day ago 2 hours", "2024-07-16 12:25:30"},
      {__LINE__, "month ago", "2024-06-17 10:25:30"},
      {__LINE__, "three quarters ago", "2023-10-17 10:25:30"},
      {__LINE__, "second month", "2024-08-17 10:25:30"},
      {__LINE__, "month 1/31/2023", "2023-02-28 00:00:00"},
      {__LINE__, "1/31/2024 month", "2024-02-29 00:00:00"},
      {__LINE__, "1/31/2023 1 month", "2023-02-01 00:00:00"},
      {__LINE__, "60 years ago", nullptr},
      {__LINE__, "135 years", "2159-07-17 10:25:30"},
      {__LINE__, "137 years", nullptr},
      {__LINE__, "9223372036854775807 weeks", nullptr},
      {__LINE__, "99999999999999999999", nullptr},
      {__LINE__, "ago", nullptr},
      // periods
      {__LINE__, "every month", "2024-08-01 00:00:00"},
      {__LINE__, "every quarter", "2024-10-01 00:00:00"},
      {__LINE__, "every year", "2025-01-01 00:00:00"},
      {__LINE__, "first monday every month", "2024-08-05 00:00:00"},
      {__LINE__, "third wednesday every month", "2024-07-17 00:00:00"},
      {__LINE__, "last friday every month", "2024-07-26 00:00:00"},
      {__LINE__, "last day every month", "2024-07-31 00:00:00"},
      {__LINE__, "every month 14:30", "2024-08-01 14:30:00"},
      {__LINE__, "fifth monday every month", "2024-07-29 00:00:00"},
      {__LINE__, "sixth monday every month", nullptr},
      {__LINE__, "32 days every month", nullptr},
      {__LINE__, "31 days every month", "2024-08-01 00:00:00"},
      {__LINE__, "53 mondays", nullptr},
      {__LINE__, "month every month", nullptr},
      {__LINE__, "first month every quarter", "2024-10-01 00:00:00"},
      {__LINE__, "first monday every day", nullptr},
      {__LINE__, "every 0 months", nullptr},
      {__LINE__, "every now", nullptr},
      {__LINE__, "every last month monday", "2024-08-05 00:00:00"},
      {__LINE__, "every month every month", nullptr},
      {__LINE__, "3/7/2024 every month", nullptr},
      // words and remarks
      {__LINE__, "(a remark (and another)) today (and a last one", "2024-07-17 00:00:00"},
      {__LINE__, "\t today\n", "2024-07-17 00:00:00"},
      {__LINE__, "bogus", nullptr},
      {__LINE__, "today!", nullptr},
      {__LINE__, "forevermore", nullptr},
      {__LINE__, "sept. 7", nullptr},
      {__LINE__, "5 seconds second", nullptr},
      {__LINE__, "\xc3\xa4", nullptr},
      {__LINE__, "n:n", nullptr},
  };
  for (const char *zone : zones) {
    zone_guard guard(zone);
    for (const read_row &row : rows) {
      SCOPED_TRACE(std::string(zone) + ", line " + std::to_string(row.line));
      check("2024-07-17 10:25:30", row);
    }
  }
}

TEST(dates_read, numbers_beyond_the_clock_stand_for_themselves) {
  EXPECT_EQ(qvr_getdate_from("2400", 1700000000), 2400);
  EXPECT_EQ(qvr_getdate_from("2360", 1700000000), 2360);
  EXPECT_EQ(qvr_getdate_from("1600000000 5 weeks ago", 1700000000), 1600000000);
  EXPECT_EQ(qvr_getdate_from("forever", 1700000000), TIME_FOREVER);
  EXPECT_EQ(qvr_getdate_from("4294880895", 0), 4294880895);
  EXPECT_EQ(qvr_getdate_from("4294880896", 0), -1);
}

TEST(dates_read, zones_of_the_text) {
  static constexpr struct {
    int line;
    const char *text;
    const char *wanted;  // in UTC
  } rows[] = {
      {__LINE__, "3/7/2024 14:30 PST", "20240307T223000Z"},
      {__LINE__, "3/7/2024 14:30 p.s.t", "20240307T223000Z"},
      {__LINE__, "3/7/2024 14:30 pdt", "20240307T213000Z"},
      {__LINE__, "3/7/2024 14:30 a.e.s.s.t", "20240307T033000Z"},
      {__LINE__, "3/7/2024 03:30 jst", "20240306T183000Z"},
      {__LINE__, "3/7/2024 14:30 z", "20240307T143000Z"},
      {__LINE__, "3/7/2024 14:30 b", "20240307T163000Z"},
      {__LINE__, "3/7/2024 14:30 gmt", "20240307T143000Z"},
      {__LINE__, "3/7/2024 14:30 gmt+0200", "20240307T123000Z"},
      {__LINE__, "3/7/2024 14:30 GMT-02:30", "20240307T170000Z"},
      {__LINE__, "3/7/2024 14:30 gmt+9900", nullptr},
      {__LINE__, "3/7/2024 14:30 j", nullptr},
      {__LINE__, "3/7/2024 14:30 pst est", nullptr},
      {__LINE__, "3/7/2024 pst", nullptr},
      {__LINE__, "14:30 pst 2 days ago", nullptr},
  };
  for (const char *zone : zones) {
    zone_guard guard(zone);
    for (const auto &row : rows) {
      SCOPED_TRACE(std::string(zone) + ", line " + std::to_string(row.line));
      std::int64_t got = qvr_getdate_from(row.text, 1721211930);
      if (row.wanted == nullptr) {
        EXPECT_EQ(got, -1);
      } else {
        EXPECT_STREQ(date_iso_utc(got, true), row.wanted);
      }
    }
  }
}

TEST(dates_read, across_daylight_changes) {
  static constexpr struct {
    int line;
    const char *zone;
    const char *base;
    const char *text;
    const char *wanted;
  } rows[] = {
      // The base on one side of the change, the result on the other.
      {__LINE__, "Europe/Berlin", "2024-04-05 12:00:00", "2 weeks ago", "2024-03-22 12:00:00"},
      {__LINE__, "Europe/Berlin", "2024-11-05 12:00:00", "14 days ago", "2024-10-22 12:00:00"},
      {__LINE__, "Europe/Berlin", "2024-01-15 12:00:00", "7/1/2024", "2024-07-01 00:00:00"},
      {__LINE__, "Europe/Berlin", "2024-07-15 12:00:00", "1/15/2024 8:00", "2024-01-15 08:00:00"},
      {__LINE__, "Europe/Berlin", "2024-03-29 12:00:00", "monday 12:00", "2024-04-01 12:00:00"},
      {__LINE__, "America/New_York", "2024-03-20 23:30:00", "2 weeks ago", "2024-03-06 23:30:00"},
      {__LINE__, "America/New_York", "2024-03-20 00:30:00", "month ago", "2024-02-20 00:30:00"},
      {__LINE__, "America/New_York", "2024-03-10 06:00:00", "5 hours ago", "2024-03-10 01:00:00"},
      {__LINE__, "America/New_York", "2024-11-03 12:00:00", "yesterday", "2024-11-02 00:00:00"},
      {__LINE__, "America/New_York", "2024-01-15 12:00:00", "1/10/2024 12:00 EST",
       "2024-01-10 12:00:00"},
      {__LINE__, "America/New_York", "2024-07-15 12:00:00", "7/10/2024 12:00 EDT",
       "2024-07-10 12:00:00"},
      {__LINE__, "America/New_York", "2024-07-15 12:00:00", "7/10/2024 12:00 EST",
       "2024-07-10 13:00:00"},
      // Half an hour of daylight time.
      {__LINE__, "Australia/Lord_Howe", "2024-04-15 12:00:00", "2 weeks ago",
       "2024-04-01 12:00:00"},
      {__LINE__, "Australia/Lord_Howe", "2024-04-15 12:45:00", "2 weeks ago",
       "2024-04-01 12:45:00"},
      {__LINE__, "Australia/Lord_Howe", "2024-10-15 00:10:00", "month ago", "2024-09-15 00:10:00"},
      {__LINE__, "Australia/Lord_Howe", "2024-01-15 12:00:00", "7/1/2024", "2024-07-01 00:00:00"},
      {__LINE__, "Australia/Lord_Howe", "2024-07-15 12:00:00", "1/15/2024", "2024-01-15 00:00:00"},
      // Of two moments the later; for none, the hour before the leap.
      {__LINE__, "Europe/Berlin", "2024-10-20 12:00:00", "10/27/2024 02:30", "2024-10-27 02:30:00"},
      {__LINE__, "America/New_York", "2024-03-01 12:00:00", "3/10/2024 02:30",
       "2024-03-10 01:30:00"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    zone_guard guard(row.zone);
    check(row.base, {row.line, row.text, row.wanted});
  }
  zone_guard guard("Europe/Berlin");
  std::int64_t base = local_time_of("2024-10-20 12:00:00");
  EXPECT_STREQ(date_iso_zone(qvr_getdate_from("10/27/2024 02:30", base)),
               "2024-10-27T02:30:00+0100");
}

TEST(dates_read, flags_tell_what_the_text_held) {
  static constexpr struct {
    int line;
    const char *text;
    std::uint32_t flags;
  } rows[] = {
      {__LINE__, "5 weeks", DATE_HAS_REL},
      {__LINE__, "5 weeks 14:30", DATE_HAS_REL | DATE_HAS_TIME},
      {__LINE__, "1400", DATE_HAS_TIME},
      {__LINE__, "3/7/2024 14:30 pst", DATE_HAS_DATE | DATE_HAS_TIME | DATE_HAS_ZONE},
      {__LINE__, "monday", DATE_HAS_DAY},
      {__LINE__, "every 2 hours", DATE_HAS_EVERY},
      {__LINE__, "every hour", 0},
      {__LINE__, "2400", 0},
      {__LINE__, "forever", 0},
  };
  zone_guard guard("UTC");
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::uint32_t flags = 99;
    qvr_getdate_from(row.text, 0, &flags);
    EXPECT_EQ(flags, row.flags);
  }
  EXPECT_EQ(qvr_getdate_from("5 weeks", 0), 5 * 604800);
  EXPECT_EQ(qvr_getdate_from("2 months", 0), 59 * 86400);
}

TEST(dates_read, the_end_of_a_range) {
  static constexpr struct {
    int line;
    const char *zone;
    const char *text;
    const char *wanted;
  } rows[] = {
      {__LINE__, "UTC", "yesterday", "2024-04-04 23:59:59"},
      {__LINE__, "UTC", "5 days ago", "2024-03-31 23:59:59"},
      {__LINE__, "UTC", "3/7/2024", "2024-03-07 23:59:59"},
      {__LINE__, "UTC", "3/7/2024 00:00", "2024-03-07 00:00:00"},
      {__LINE__, "UTC", "today", "2024-04-05 00:00:00"},
      {__LINE__, "UTC", "24 hours ago", "2024-04-04 23:59:59"},
      {__LINE__, "UTC", "30 hours ago", "2024-04-04 04:00:00"},
      {__LINE__, "UTC", "tomorrow", "2024-04-06 00:00:00"},
      {__LINE__, "UTC", "forever", "?"},
      {__LINE__, "Europe/Berlin", "3/7/2024", "2024-03-07 23:59:59"},
      {__LINE__, "Europe/Berlin", "2 weeks ago", "2024-03-22 10:00:00"},
      {__LINE__, "Europe/Berlin", "3/31/2024", "2024-04-01 00:59:59"},
      {__LINE__, "America/New_York", "month ago", "2024-03-05 10:00:00"},
      {__LINE__, "America/New_York", "11/5/2023", "2023-11-05 22:59:59"},
      {__LINE__, "Australia/Lord_Howe", "9/20/2023", "2023-09-20 23:59:59"},
      {__LINE__, "Australia/Lord_Howe", "8 months ago", "2023-08-05 10:00:00"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    zone_guard guard(row.zone);
    std::int64_t now = local_time_of("2024-04-05 10:00:00");
    EXPECT_EQ(local_text_of(qvr_getdate_end_from(row.text, now)), row.wanted);
  }
  EXPECT_EQ(qvr_getdate_end_from("bogus", 1700000000), -1);
}

TEST(dates_read, locale_forms) {
  zone_guard guard("Europe/Berlin");
  std::string year = local_text_of(time_now()).substr(0, 4);
  struct {
    int line;
    const char *text;
    bool end;
    std::string wanted;
  } const rows[] = {
      {__LINE__, "l Thu Mar  7 14:30:05 2024", false, "2024-03-07 14:30:05"},
      {__LINE__, "l 03/07/24", false, "2024-03-07 00:00:00"},
      {__LINE__, "l 03/07/24", true, "2024-03-07 23:59:59"},
      {__LINE__, "l   03/07/24 14:30", true, "2024-03-07 14:30:59"},
      {__LINE__, "l 03/07/24 14:30:05", false, "2024-03-07 14:30:05"},
      {__LINE__, "l Mar 7 2024 14:30", false, "2024-03-07 14:30:00"},
      {__LINE__, "l Mar 7 2024", true, "2024-03-07 23:59:59"},
      {__LINE__, "l Mar 7 14:30", false, year + "-03-07 14:30:00"},
      {__LINE__, "l Mar 7", false, year + "-03-07 00:00:00"},
      {__LINE__, "l 03/07/24 14:30:60", false, ""},
      {__LINE__, "l 03/07/24 and more", false, ""},
      {__LINE__, "l yesterday", false, ""},
      {__LINE__, "3/7/2024", true, "2024-03-07 23:59:59"},
      {__LINE__, "3/7/2024", false, "2024-03-07 00:00:00"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    bool locale = false;
    std::int64_t got = qvr_getdate_any(row.text, row.end, &locale);
    EXPECT_EQ(locale, row.text[0] == 'l');
    if (row.wanted.empty()) {
      EXPECT_EQ(got, -1);
    } else {
      EXPECT_EQ(local_text_of(got), row.wanted);
    }
  }
  EXPECT_EQ(qvr_getdate_any("l " + std::string(598, ' ') + "03/07/24", false), 1709766000);
  EXPECT_EQ(qvr_getdate_any("l x" + std::string(600, ' '), false), -1);
  EXPECT_STREQ(date_form_name(true), "(locale format)");
}

TEST(dates_read, parses_take_turns) {
  zone_guard guard("Europe/Berlin");
  std::int64_t wanted = qvr_getdate_from("5 weeks ago 00:00", 1721211930);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 4; i++) {
    threads.emplace_back([&] {
      for (int j = 0; j < 200; j++) {
        wrong += qvr_getdate_from("5 weeks ago 00:00", 1721211930) != wanted;
        wrong += qvr_getdate_from("monday 14:30", 1721211930) == wanted;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}
