// The completions that are made from the command's tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "people_files.h"
#include "run_command.h"

namespace qvr::test {
namespace {

struct completion_row {
  int line;
  std::vector<std::string> words;  // as the shell cuts them; the last one is being typed
  std::set<std::string> offered;   // all of them, or none when empty
  std::set<std::string> among;     // at least these
};

TEST(completion, bash_offers_the_words_of_the_tables) {
  const std::vector<completion_row> rows = {
      {__LINE__, {"-"}, {}, {"-a", "-q", "-x"}},
      {__LINE__, {"-q", "ssret"}, {"ssretent", "ssretentdur"}, {}},
      {__LINE__, {"-q", "client=mars,leve"}, {"client=mars,level"}, {}},
      {__LINE__, {"-q", "client", "=", "mars,leve"}, {"mars,level"}, {}},
      {__LINE__, {"-q", "\"client=mars, lev"}, {"client=mars, level"}, {}},
      {__LINE__, {"-q", "!incom"}, {"!incomplete"}, {}},
      {__LINE__, {"-q", "not incom"}, {"not incomplete"}, {}},
      {__LINE__, {"-q", "level", "=", "f"}, {"full"}, {}},
      {__LINE__, {"-q", "level", "="}, {}, {"full", "incr", "9", "manual"}},
      {__LINE__, {"-q", "full", "=", ""}, {"true", "false"}, {}},
      {__LINE__, {"-q", "volfl"}, {}, {}},
      {__LINE__, {"-r", "client,volfl"}, {"client,volflags"}, {}},
      {__LINE__, {"-r", "client,incompl"}, {}, {}},
      {__LINE__, {"-a", "-ar", "sums"}, {"sumsize"}, {}},
      {__LINE__, {"-o", "t"}, {"tc", "te", "tl", "tm", "tn", "to", "tR"}, {}},
      {__LINE__, {"-x", ""}, {"c", "m", "p", "q"}, {}},
      {__LINE__, {"-t", "-"}, {}, {}},
  };
  for (const completion_row &row : rows) {
    SCOPED_TRACE(row.line);
    std::vector<std::string> argv = {
        "bash", "-c",
        "source \"$0\"; COMP_WORDS=(reelscan \"$@\"); COMP_CWORD=$#; _reelscan; "
        "printf '%s\\n' \"${COMPREPLY[@]}\"",
        BUILD_DIRECTORY "/completion/reelscan"};
    argv.insert(argv.end(), row.words.begin(), row.words.end());
    command_result result = run_command(argv);
    EXPECT_EQ(result.err, "");
    std::set<std::string> offered = found(result.out, "([^\n]+)");
    if (row.among.empty()) {
      EXPECT_THAT(offered, testing::ElementsAreArray(row.offered));
    }
    EXPECT_THAT(offered, testing::IsSupersetOf(row.among));
  }
}

TEST(completion, zsh_reads_its_own) {
  command_result result = run_command({"zsh", "-n", BUILD_DIRECTORY "/completion/_reelscan"});
  EXPECT_EQ(result.status, 0) << result.err;
}

}  // namespace
}  // namespace qvr::test
