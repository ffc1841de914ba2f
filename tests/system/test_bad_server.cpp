// A media database that misbehaves: the report is whole, or the command says what went wrong.
#include <filesystem>
#include <sstream>

#include "lab_calls.h"
#include "system_fixture.h"

namespace qvr::test {
namespace {

constexpr const char *QUERY = "-r ssid -q level=full";
constexpr const char *SAMPLE = "1:4:21";

// A lab of its own with a call log.
struct lab_run {
  explicit lab_run(std::vector<std::string> options) {
    static int number = 0;
    log = testing::TempDir() + "calls-" + std::to_string(getpid()) + '-' + std::to_string(number++);
    options.insert(options.end(), {"--log", log});
    site = installation::make(options, why);
  }
  ~lab_run() {
    site.reset();
    std::filesystem::remove(log);
  }
  // The calls of one procedure that the media database saw.
  std::size_t calls(const std::string &procedure) const {
    std::istringstream seen(lab_calls(log).next());
    for (std::string word; seen >> word;) {
      std::size_t star = word.find('*');
      if (word.substr(0, star) != procedure) continue;
      return star == word.npos ? 1 : std::stoul(word.substr(star + 1));
    }
    return 0;
  }

  std::string log, why;
  std::unique_ptr<installation> site;
};

TEST(bad_server, whole_or_told) {
  static constexpr struct {
    int line;
    const char *fault;  // of procedure 57
    bool whole;
    std::size_t calls;  // 0: not looked at
    const char *err;    // a part of it
  } rows[] = {
      {__LINE__, "times=0", true, 1, ""},
      {__LINE__, "times=1,truncate=8", true, 2, ""},
      {__LINE__, "truncate=8", false, 2, "Can't decode result"},
      {__LINE__, "times=1,close=300", true, 2, ""},
      {__LINE__, "close=3000", false, 2, "RPC receive operation failed"},
      {__LINE__, "error=85002:damaged", false, 1, "damaged"},
      {__LINE__, "times=1,error=25005:lost", true, 2, ""},
      {__LINE__, "more=7", true, 1, ""},
      {__LINE__, "repeat", false, 3, "repeats a page"},
      {__LINE__, "times=1,garbage=100", true, 2, ""},
      {__LINE__, "accept=3", false, 0, "server is unavailable"},
      {__LINE__, "fragment=7", true, 1, ""},
  };
  std::string whole;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string fault = "daemon=qvrmmdbd,proc=57," + std::string(row.fault);
    lab_run lab({"--sample", SAMPLE, "--now", "1795000000", "--fault", fault});
    if (!lab.site) GTEST_SKIP() << lab.why;
    command_result result = lab.site->run(QUERY);
    if (whole.empty()) whole = result.out;
    EXPECT_EQ(result.status, row.whole ? 0 : 1);
    EXPECT_EQ(result.out, row.whole ? whole : "");
    EXPECT_NE(result.err.find(row.err), std::string::npos) << result.err;
    EXPECT_TRUE(row.calls == 0 || lab.calls("57") == row.calls) << lab.calls("57");
  }
  EXPECT_NE(whole, "");
}

// Volumes that the workers cannot fetch are passed over; the debug log tells of each.
TEST(bad_server, volumes_passed_over) {
  static constexpr struct {
    int line;
    const char *fault;
    int status;
    const char *debug;
  } rows[] = {
      {__LINE__, "proc=64,error=85002:damaged", 1, "volume walk: volume '"},
      {__LINE__, "proc=64,call=2,error=85002:damaged", 0, "volume walk: volume '"},
      {__LINE__, "proc=53,error=85002:damaged", 1, "volume walk: save sets of volume '"},
      {__LINE__, "proc=53,call=2,error=85002:damaged", 0, "volume walk: save sets of volume '"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string fault = "daemon=qvrmmdbd," + std::string(row.fault);
    lab_run lab({"--sample", SAMPLE, "--now", "1795000000", "--fault", fault});
    if (!lab.site) GTEST_SKIP() << lab.why;
    command_result result = lab.site->run("-D 1 -r volume,ssid -q totalsize>1");
    EXPECT_EQ(result.status, row.status);
    EXPECT_NE(result.err.find(row.debug), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("passed over (85002: damaged"), std::string::npos) << result.err;
  }
}

// What prints no rows without records tells a failure all the same.
TEST(bad_server, listings_without_an_answer) {
  static constexpr struct {
    int line;
    const char *words;
    const char *out;
  } rows[] = {
      {__LINE__, "-C", "No clients.\n"},
      {__LINE__, "-O", "No volumes.\n"},
      {__LINE__, "-h", "Received no results matching history query\n"},
  };
  lab_run lab({"--sample", SAMPLE, "--fault", "daemon=qvrmmdbd,proc=58,error=85002:damaged",
               "--fault", "daemon=qvrmmdbd,proc=65,error=85002:damaged", "--fault",
               "daemon=qvrmmdbd,proc=96,error=85002:damaged"});
  if (!lab.site) GTEST_SKIP() << lab.why;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = lab.site->run(row.words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, row.out);
    EXPECT_NE(result.err.find("damaged"), std::string::npos) << result.err;
  }
}

// The same save sets come whichever way the server has its pages continued.
TEST(bad_server, pages) {
  std::string outputs[2];
  for (int more = 1; more <= 2; more++) {
    lab_run lab({"--sample", SAMPLE, "--now", "1795000000", "--scale", "17000", "--more",
                 std::to_string(more)});
    if (!lab.site) GTEST_SKIP() << lab.why;
    command_result result = lab.site->run("-r ssid(53) -q savetime>10~years~ago");
    EXPECT_EQ(result.status, 0);
    EXPECT_GE(lab.calls("57"), 3u);
    outputs[more - 1] = result.out;
  }
  EXPECT_TRUE(outputs[0] == outputs[1]);
  EXPECT_GT(outputs[0].size(), 17000u * 53);
}

}  // namespace
}  // namespace qvr::test
