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

// Types lines into a zsh on a terminal of its own and prints what its completion has for their
// ends.
constexpr const char *TYPE_INTO_ZSH = R"sh(
zmodload zsh/zpty
wait_for() {
  local chunk; REPLY=
  repeat 3000; do
    if zpty -rt z chunk; then REPLY+=$chunk; else sleep 0.02; fi
    if [[ $REPLY == *$1* ]]; then return; fi
  done
}
zpty -b z zsh -f -i
zpty -w z 'fpath=('$0' $fpath); autoload -U compinit; compinit -u -D
gather() {
  compadd() {
    local -a hits
    if [[ "$*" == *-[OAD]* ]]; then builtin compadd "$@"; return; fi
    builtin compadd -O hits "$@"; print -r -- "OFFERED:$hits:"
  }
  _main_complete; print -r -- END-OF-OFFER; unfunction compadd
}
zle -C gather complete-word gather; bindkey "^T" gather; print READY"-TO-TYPE"'
wait_for READY-TO-TYPE
for line; do
  zpty -w -n z "$line"$'\C-t'; wait_for END-OF-OFFER
  print -r -- "LINE$REPLY"
  zpty -w -n z $'\C-u'
done
)sh";

TEST(completion, zsh_offers_the_words_of_the_tables) {
  struct row_t {
    int line;
    const char *typed;
    std::set<std::string> offered;  // all of them; "..." when there may be more
  };
  const row_t rows[] = {
      {__LINE__, "reelscan -", {"-a", "-q", "-x", "..."}},
      {__LINE__, "reelscan -q ssret", {"ssretent", "ssretentdur"}},
      {__LINE__, "reelscan -q 'client=mars, lev", {"level"}},
      {__LINE__, "reelscan -q '!incom", {"incomplete"}},
      {__LINE__, "reelscan -q 'client=a,not incom", {"incomplete"}},
      {__LINE__, "reelscan -q level=f", {"full"}},
      {__LINE__, "reelscan -q full=", {"true", "false"}},
      {__LINE__, "reelscan -q client=", {}},
      {__LINE__, "reelscan -q volfl", {}},
      {__LINE__, "reelscan -ar client,volfl", {"volflags"}},
      {__LINE__, "reelscan -r 'name(40), incompl", {}},
      {__LINE__, "reelscan -o tR", {"c", "e", "l", "m", "n", "o"}},
      {__LINE__, "reelscan -x", {"c", "m", "p", "q"}},
  };
  std::vector<std::string> argv = {"zsh", "-f", "-c", TYPE_INTO_ZSH, BUILD_DIRECTORY "/completion"};
  for (const row_t &row : rows) argv.push_back(row.typed);
  command_result result = run_command(argv);
  std::string rest = result.out;
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    rest.erase(0, rest.find("LINE") + 4);
    std::string offers;
    for (const std::string &words : found(rest.substr(0, rest.find("LINE")), "OFFERED:([^:]*):"))
      offers += words + ' ';
    std::set<std::string> offered = found(offers, "([^ ]+)"), wanted = row.offered;
    if (wanted.erase("...") == 0) {
      EXPECT_EQ(offered, wanted);
    }
    EXPECT_THAT(offered, testing::IsSupersetOf(wanted));
  }
}

}  // namespace
}  // namespace qvr::test
