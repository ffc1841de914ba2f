// The fetches by four threads: workers that finish in any order, and volumes that cannot be had.
#include "small_catalogue.h"

namespace qvr::test {
namespace {

// Both fetches and the summary, with tests that ask the server's resources from the workers.
const std::vector<std::string> REPORTS = {
    "-a",
    "-a -o t -r volume,ssid,name",
    "-a -r savesets,volume",
    "-a -S",
    "-a -xc; -r ssid,mediafile,volume",
    "-a -q client=ares,pool=Default -o n -r volume,ssid,policy",
    "-q workflow=Nightly,pool=Default -r volume,ssid",
    "-X -a -q savetime<1/1/2026",
    "-X -q client=ares,pool=Default,savetime<1/1/2026"};
const std::vector<std::string> SAMPLE = {"--sample", "7:3:12", "--now", "1767225600"};

std::vector<command_result> results_of(const std::vector<std::string> &faults, std::string &why) {
  std::vector<std::string> options = SAMPLE;
  for (const std::string &fault : faults) {
    options.push_back("--fault");
    options.push_back(fault);
  }
  std::unique_ptr<installation> site = installation::make(options, why);
  std::vector<command_result> results;
  if (!site || !why.empty()) return results;
  for (const std::string &words : REPORTS) results.push_back(site->run(words));
  return results;
}

TEST(fetch, the_order_of_answers_does_not_show) {
  std::string why;
  std::vector<command_result> at_once = results_of({}, why);
  if (at_once.empty()) GTEST_SKIP() << why;
  std::vector<command_result> late = results_of(
      {"daemon=qvrmmdbd,proc=64,random-delay=25", "daemon=qvrmmdbd,proc=53,random-delay=25"}, why);
  ASSERT_EQ(late.size(), at_once.size()) << why;
  for (std::size_t i = 0; i < REPORTS.size(); i++) {
    SCOPED_TRACE(REPORTS[i]);
    EXPECT_EQ(at_once[i].status, 0);
    EXPECT_GT(at_once[i].out.size(), 100u);
    EXPECT_EQ(late[i].out, at_once[i].out);
    EXPECT_EQ(late[i].err, "");
    EXPECT_EQ(late[i].status, 0);
  }
}

// A request that fails: what is told, and what is printed all the same.
struct failure_row {
  int line;
  const char *fault;
  const char *words;
  const char *err;
};

TEST(fetch, failures) {
  constexpr const char *no_matches = "6095:reelscan: no matches found for the query\n";
  const failure_row rows[] = {
      // A worker's failure passes over its volume without a word.
      {__LINE__, "daemon=qvrmmdbd,proc=64,error=85005:gone\n", "-a", no_matches},
      {__LINE__, "daemon=qvrmmdbd,proc=64,error=85005:gone\n", "-a -o t -r ssid,volume",
       no_matches},
      {__LINE__, "daemon=qvrmmdbd,proc=53,error=85005:gone\n", "-a", no_matches},
      // The reason of the main session comes first.
      {__LINE__, "daemon=qvrmmdbd,proc=65,error=85005:gone\n", "-m",
       "gone\n6095:reelscan: no matches found for the query\n"},
      {__LINE__, "daemon=qvrmmdbd,proc=53,error=85005:gone\n", "-q ssid=12",
       "gone\n6095:reelscan: no matches found for the query\n"},
      {__LINE__, "daemon=qvrmmdbd,proc=57,error=85005:gone\n", "-c mars", "gone\n"},
  };
  for (const failure_row &row : rows) {
    SCOPED_TRACE(row.line);
    small_site at("", {"--fault", row.fault});
    if (!at.site) GTEST_SKIP() << at.why;
    command_result result = at.site->run(row.words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, row.err);
  }
}

}  // namespace
}  // namespace qvr::test
