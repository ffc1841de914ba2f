// The summary against sums that the sqlite3 shell makes over the catalogue.
#include <ctime>
#include <map>
#include <optional>
#include <sstream>

#include "system_fixture.h"
#include "temp_dir.h"

namespace qvr::test {
namespace {

struct figures {
  std::uint64_t save_sets = 0, files = 0, kilobytes = 0;
};

// What a save set must be to be counted under a label, and where a client's name is the server's.
constexpr const char *BUCKETS[][2] = {
    {"save sets", "1"},
    {"full", "level=0 and not archive"},
    {"incremental", "level=10 and not archive"},
    {"intermediate", "level not in (0,10,-2,-3) and not archive"},
    {"ad-hoc", "level=-2 and not archive"},
    {"archive", "archive"},
    {"migration", "level=-3"},
    {"empty", "totalsize<5"},
    {"purged", "ssflags&512"},
    {"index", "lower(client)='vault' and (lower(name)='bootstrap' or lower(name) like '%index%')"},
    {"incomplete", "ssflags&65536"},
};

std::string size_text(std::uint64_t kilobytes) {
  std::string digits = std::to_string(kilobytes);
  std::size_t unit = digits.size() < 5 ? 0 : std::min<std::size_t>((digits.size() - 2) / 3, 5);
  return digits.substr(0, digits.size() - 3 * unit) + " " + "KMGTPE"[unit] + "B";
}

std::string line_of(const std::string &label, const figures &sum) {
  char text[200];
  auto n = [](std::uint64_t value) { return static_cast<unsigned long>(value); };
  int at = std::snprintf(text, sizeof text, "%6lu %-12s", n(sum.save_sets), label.c_str());
  if (sum.save_sets != 0 && sum.files != 0)
    at += std::snprintf(text + at, sizeof text - 100, "%9lu files%6lu/ss", n(sum.files),
                        n((sum.files + sum.save_sets / 4) / sum.save_sets));
  if (sum.save_sets != 0 && sum.files != 0 && sum.kilobytes != 0)
    std::snprintf(text + at, sizeof text - 100, "%9s%9s/ss%9s/file",
                  size_text(sum.kilobytes).c_str(),
                  size_text((sum.kilobytes + sum.save_sets / 4) / sum.save_sets).c_str(),
                  size_text((sum.kilobytes + sum.files / 4) / sum.files).c_str());
  return text;
}

class summary_figures : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    file = directory.emplace().file("catalogue");
    site = installation::make({"--sample", "11:8:45", "--store", file}, why);
  }
  static void TearDownTestSuite() { site.reset(), directory.reset(); }

  // Sums over the save sets whose first fragment lies on a volume, and that fit.
  static figures sum(const std::string &condition) {
    command_result shell = run_command(
        {"sqlite3", "-separator", " ", file,
         "select count(*), coalesce(sum(nfiles),0), coalesce(sum(case when totalsize>4 then "
         "(totalsize+1023)/1024 else 0 end),0) from (select *, ssretent=4294967295 and level<>-3 "
         "as "
         "archive from saveset where id in (select saveset from fragment join volume using (volid) "
         "where clone=0 and position=0)) where " +
             condition});
    EXPECT_EQ(shell.err, "");
    figures made;
    std::istringstream(shell.out) >> made.save_sets >> made.files >> made.kilobytes;
    return made;
  }

  static inline std::optional<temp_dir> directory;
  static inline std::string file, why;
  static inline std::unique_ptr<installation> site;
};

TEST_F(summary_figures, are_those_of_the_catalogue) {
  if (!site) GTEST_SKIP() << why;
  std::int64_t today = std::time(nullptr) / 86400 * 86400;
  auto day = [&](int back) { return std::to_string(today - back * 86400); };
  const struct {
    int line;
    std::string words, condition;
  } rows[] = {
      {__LINE__, "-a", "1"},
      {__LINE__, "-c mars", "client='mars'"},
      {__LINE__, "-c vault -c saturn", "client in ('vault','saturn')"},
      {__LINE__, "-a -q level=incr", "level=10"},
      {__LINE__, "-a -q level=full", "level=0"},
      {__LINE__, "-a -q totalsize<1000000", "totalsize<1000000"},
      {__LINE__, "-a -q incomplete", "ssflags&65536"},
      {__LINE__, "-t " + day(20), "savetime>=" + day(20)},
      {__LINE__, "-q savetime<" + day(20), "savetime<" + day(20)},
      {__LINE__, "-a -q vmname=ALL_VM",
       "id in (select saveset from saveset_attribute where name='*vm_name')"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = site->run("-X " + row.words);
    EXPECT_EQ(result.status, 0) << result.err;
    std::map<std::string, figures> sums;
    std::string wanted = " Save Set Type Summary:\n";
    for (const auto &[label, condition] : BUCKETS) {
      sums[label] = sum("(" + row.condition + ") and (" + condition + ")");
      wanted += line_of(label, sums[label]) + "\n";
    }
    EXPECT_EQ(result.out.substr(0, wanted.size()), wanted);
    EXPECT_GT(sums["save sets"].save_sets, 0u);

    std::string ratios;
    const figures &full = sums["full"], &incremental = sums["incremental"];
    const figures &purged = sums["purged"], &all = sums["save sets"];
    if (full.files != 0 && incremental.save_sets != 0) {
      std::uint64_t average = std::max<std::uint64_t>(full.files / full.save_sets, 1), r;
      if (incremental.save_sets > 499 && (average > 999 || incremental.files > 0xffffff))
        r = incremental.files / (incremental.save_sets / 100) / average;
      else
        r = incremental.files * 100 / incremental.save_sets / average;
      char text[80];
      std::snprintf(text, sizeof text, "%4d%% of full files per incremental\n",
                    static_cast<int>(std::min<std::uint64_t>(std::max<std::uint64_t>(r, 1), 100)));
      ratios += text;
    }
    if (purged.files != 0 && purged.files < all.files) {
      std::uint64_t x =
          all.files <= 1000 ? purged.files * 100 / all.files : purged.files / (all.files / 100);
      char text[80];
      std::snprintf(text, sizeof text, "%4d%% of files are on-line\n",
                    100 - static_cast<int>(std::min<std::uint64_t>(x, 99)));
      ratios += text;
    }
    std::string rest = result.out.substr(std::min(wanted.size(), result.out.size()));
    EXPECT_EQ(rest.substr(0, ratios.size()), ratios) << result.out;

    // Days, the week and the month, where the period reaches into them.
    if (row.words.find("<" + day(20)) != row.words.npos) {
      EXPECT_EQ(rest.find("Recent"), rest.npos);
      continue;
    }
    std::string recent = " Recent Save Set Usage Summary:\n";
    for (int i = 0; i < 7; i++) {
      std::time_t start = today - i * 86400;
      std::tm utc{};
      gmtime_r(&start, &utc);
      char label[40];
      std::snprintf(label, sizeof label, "%2d/%2.2d/%2.2d", utc.tm_mon + 1, utc.tm_mday,
                    utc.tm_year % 100);
      std::string of_day = "savetime>=" + day(i);
      if (i > 0) of_day += " and savetime<" + day(i - 1);
      recent +=
          line_of(i == 0 ? "today" : label, sum("(" + row.condition + ") and " + of_day)) + "\n";
    }
    figures week = sum("(" + row.condition + ") and savetime>=" + day(6));
    if (week.save_sets != all.save_sets) recent += line_of("one week", week) + "\n";
    // The month goes back by the calendar; its figures are the catalogue's from some day on.
    std::size_t at = rest.find(" Recent");
    ASSERT_NE(at, rest.npos);
    EXPECT_EQ(rest.substr(at, recent.size()), recent);
    std::string last = rest.substr(std::min(at + recent.size(), rest.size()));
    figures month = sum("(" + row.condition + ") and savetime>=strftime('%s','now','-1 month')");
    if (month.save_sets == all.save_sets || week.save_sets == all.save_sets) {
      EXPECT_EQ(last.find("one month"), last.npos);
    } else {
      EXPECT_EQ(last.substr(0, last.find('\n')), line_of("one month", month));
    }
  }
}

}  // namespace
}  // namespace qvr::test
