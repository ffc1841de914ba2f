#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "client_constraints.h"
#include "debug_words.h"
#include "default_report.h"
#include "options.h"
#include "usage.h"

using namespace qvr;

namespace {

std::string same_name(std::string_view name) {
  return std::string(name);
}

// "mars" is known under its full name; nothing else resolves.
std::string mars_only(std::string_view name) {
  return name == "mars" ? "mars.example" : "";
}

// A command line, scanned; words are separated by blanks, "_" stands for a blank in a word.
struct scanned {
  explicit scanned(const std::string &line) {
    std::istringstream in("reelscan " + line);
    for (std::string word; in >> word;) {
      for (char &c : word) {
        if (c == '_') c = ' ';
      }
      words.push_back(word);
    }
    run();
  }
  struct whole {};
  scanned(whole, std::vector<std::string> words_) : words(std::move(words_)) { run(); }

  void run() {
    for (std::string &word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStderr();
    int argc = static_cast<int>(words.size());
    good = scan_options(argc, argv.data(), {same_name, mars_only}, settings, request, refusal) &&
           unescape_export_spec(settings);
    printed = testing::internal::GetCapturedStderr();
  }

  std::vector<std::string> words;
  std::vector<char *> argv;
  settings_t settings;
  request_t request;
  const char *refusal = nullptr;
  std::string printed;
  bool good = false;
};

}  // namespace

TEST(options, counters) {
  static constexpr struct {
    int line;
    const char *words;
    std::int32_t settings_t::*counter;
    int wanted;
    int queries;  // how much of it counts as a selection
  } rows[] = {
      {__LINE__, "", &settings_t::query_count, 0, 0},
      {__LINE__, "-a", &settings_t::all_count, 1, 1},
      {__LINE__, "-B", &settings_t::bootstrap_count, 1, 1},
      {__LINE__, "-C", &settings_t::client_id_count, 1, 0},
      {__LINE__, "-c venus -c pluto", &settings_t::client_count, 2, 2},
      {__LINE__, "-h -h", &settings_t::history, 2, 0},
      {__LINE__, "-k", &settings_t::vm_count, 1, 0},
      {__LINE__, "-ak", &settings_t::all_count, 2, 1},
      {__LINE__, "-L", &settings_t::linear_count, 1, 0},
      {__LINE__, "-m", &settings_t::media_count, 1, 1},
      {__LINE__, "-N a -N b", &settings_t::query_count, 2, 2},
      {__LINE__, "-O", &settings_t::volume_id_count, 1, 0},
      {__LINE__, "-o mR", &settings_t::query_count, 1, 1},
      {__LINE__, "-pp", &settings_t::plain_count, 2, 0},
      {__LINE__, "-q level=full", &settings_t::query_spec_count, 1, 1},
      {__LINE__, "-A x -A y", &settings_t::attr_spec_count, 2, 0},
      {__LINE__, "-r client -r name", &settings_t::report_given, 1, 0},
      {__LINE__, "-t yesterday", &settings_t::query_count, 1, 1},
      {__LINE__, "-T today", &settings_t::end_time_count, 1, 0},
      {__LINE__, "-vvV", &settings_t::verbose_count, 2, 0},
      {__LINE__, "-vvV", &settings_t::very_verbose_count, 1, 0},
      {__LINE__, "-X -X", &settings_t::summary_count, 2, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    scanned line(row.words);
    EXPECT_TRUE(line.good);
    EXPECT_EQ(line.settings.*row.counter, row.wanted);
    EXPECT_EQ(line.settings.query_count, row.queries);
    EXPECT_EQ(line.printed, "");
  }
}

TEST(options, values) {
  scanned line(
      "-s earth -c mars -l -c MARS -I -D 3 -o celmnotR -r client,MediaFile(9) -r name -xq "
      "-t yesterday -N /a -N /b vol1 -v");
  ASSERT_TRUE(line.good);
  const settings_t &s = line.settings;
  EXPECT_EQ(s.server_name, "earth");
  EXPECT_EQ(s.client_names, (std::vector<std::string>{"mars", "mars.example"}));
  EXPECT_FALSE(s.client_alias_match);
  EXPECT_TRUE(s.iso_times);
  EXPECT_EQ(s.debug_level, 3);
  EXPECT_TRUE(debug_on(3));
  debug_set_level(0);
  EXPECT_EQ(s.sort_order, "celmnotR");
  EXPECT_TRUE(s.media_position_asked);
  EXPECT_EQ(line.request.report_columns.size(), 3u);
  EXPECT_EQ(line.request.query_constraints.size(), 1u);
  EXPECT_EQ(s.name_texts, (std::vector<std::string_view>{"/a", "/b"}));
  // Behind the first operand nothing is an option.
  EXPECT_EQ(s.operands, (std::vector<std::string_view>{"vol1", "-v"}));
  EXPECT_EQ(s.last_argument, "-v");
  EXPECT_EQ(s.verbose_count, 0);
  EXPECT_EQ(scanned("-L").settings.long_linear, true);
  EXPECT_EQ(scanned("-S").settings.long_linear, false);
}

TEST(options, refusals) {
  static constexpr const char *one_report =
      "only one of -m, -p, -B, -S, -L, -X or -r may be specified\n";
  static constexpr struct {
    int line;
    const char *words;
    const char *printed;  // by the scan itself
    const char *refusal;  // handed on, null for none
  } rows[] = {
      {__LINE__, "-z", "", nullptr},
      {__LINE__, "-s", "", nullptr},
      {__LINE__, "--help", "", nullptr},
      {__LINE__, "-B -B", one_report, nullptr},
      {__LINE__, "-m -m", one_report, nullptr},
      {__LINE__, "-S -L", one_report, nullptr},
      {__LINE__, "-LL", one_report, nullptr},
      {__LINE__, "-l -c x", "-c <clientname> needs to be used before the -l option\n", nullptr},
      {__LINE__, "-o mx", "invalid sorting order specifier, choose from `celmnotR'\n", nullptr},
      {__LINE__, "-o m -o m", "only one -o allowed\n", nullptr},
      {__LINE__, "-s a -s b", "only one -s allowed\n", nullptr},
      {__LINE__, "-xm -xq", "only one -x allowed\n", nullptr},
      {__LINE__, "-xc", "no delimiter-char specified for -xc<delimiter-char>", nullptr},
      {__LINE__, "-xp", "no printf-string specified for -xp<printf-string>\n", nullptr},
      {__LINE__, "-xz", "unknown exportspec for -x\n", nullptr},
      {__LINE__, "-xp%d_%s", "-x printf-spec contains %d[...], but only %s is allowed\n", nullptr},
      {__LINE__, "-r bogus", "", "unknown report constraint: bogus"},
      {__LINE__, "-t someday", "", "invalid value specified for `savetime'"},
      {__LINE__, "-t today -t today", "", "query constraint `savetime' specified more than once"},
      {__LINE__, "-T someday", "", "invalid value specified for `endtime'"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    scanned line(row.words);
    EXPECT_FALSE(line.good);
    EXPECT_EQ(line.printed, row.printed);
    EXPECT_STREQ(line.refusal, row.refusal);
  }
  EXPECT_EQ(scanned(scanned::whole(), {"reelscan", "-x", ""}).printed,
            "no exportspec specified for -x\n");
  EXPECT_TRUE(scanned(scanned::whole(), {"reelscan", "-xp" + std::string(1022, 'a')}).good);
  EXPECT_STREQ(scanned(scanned::whole(), {"reelscan", "-xp" + std::string(1023, 'a')}).refusal,
               "value of `-x' is too long");
}

TEST(options, waiting_texts_have_an_end) {
  static constexpr struct {
    const char *option;
    const char *printed;
  } rows[] = {
      {"-A", "Only 1000 -A options can be used.\n"},
      {"-N", "Only 1000 -N options can be used.\n"},
      {"-q", "Only 1000 -q options can be used.\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.option);
    std::vector<std::string> words = {"reelscan"};
    for (int i = 0; i < WAITING_TEXTS_MAX; i++) words.insert(words.end(), {row.option, "x"});
    EXPECT_TRUE(scanned(scanned::whole(), words).good);
    words.insert(words.end(), {row.option, "x"});
    EXPECT_EQ(scanned(scanned::whole(), words).printed, row.printed);
  }
}

TEST(options, export_texts) {
  struct {
    int line;
    const char *word;
    export_kind_t kind;
    std::string spec;
  } const rows[] = {
      {__LINE__, "-xc,", EXPORT_DELIMITED, ","},
      {__LINE__, "-xc\\t", EXPORT_DELIMITED, "\t"},
      {__LINE__, "-xp%s\\n", EXPORT_PRINTF, "%s\n"},
      {__LINE__, "-xp%%\\x\\\\", EXPORT_PRINTF, "%%\\x\\"},
      {__LINE__, "-xp%", EXPORT_PRINTF, "%"},
      {__LINE__, "-xpa\\", EXPORT_PRINTF, "a"},
      {__LINE__, "-xq", EXPORT_QUOTED, ""},
      {__LINE__, "-xm", EXPORT_XML, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    scanned line(scanned::whole(), {"reelscan", row.word});
    EXPECT_TRUE(line.good);
    EXPECT_EQ(line.settings.export_kind, row.kind);
    EXPECT_EQ(line.settings.export_spec, row.spec);
  }
}

TEST(options, default_reports) {
  static constexpr struct {
    int line;
    const char *words;
    const char *first;  // of each specification its first word
  } rows[] = {
      {__LINE__, "", "volume, client, savetime,"},
      {__LINE__, "-v", "volume, type, client,"},
      {__LINE__, "-V", "volume(20), client(16),"},
      {__LINE__, "-vV", "volume(20), client(16),"},
      {__LINE__, "-k", "volume, type, vmname,"},
      {__LINE__, "-kv", "volume, type, client,"},
      {__LINE__, "-p -V", "savetime, ssbrowse,"},
      {__LINE__, "-B", ""},
      {__LINE__, "-S", ""},
      {__LINE__, "-X -v", ""},
      {__LINE__, "-r client", ""},
      {__LINE__, "-m", "state, volume(24),"},
      {__LINE__, "-m -v", "state, volume(24),|volid, next,"},
      {__LINE__, "-m -v -V", "state, volume(24),|volid, next,|space, volflags"},
      {__LINE__, "-h", "ssid, property, newvalue"},
      {__LINE__, "-h -V", "ssid, property, oldvalue,"},
      {__LINE__, "-h -S", "ssid, property, newvalue"},
      {__LINE__, "-h -r changes", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string wanted = row.first, got;
    for (std::string_view spec : default_report(scanned(row.words).settings)) {
      std::size_t bar = wanted.find('|', got.size() + (got.empty() ? 0 : 1));
      std::size_t from = got.empty() ? 0 : got.size() + 1;
      if (!got.empty()) got += '|';
      got += spec.substr(0, (bar == std::string::npos ? wanted.size() : bar) - from);
    }
    EXPECT_EQ(got, wanted);
  }
}

TEST(options, clients_of_the_command_line) {
  scanned line("-c b -c mars -c A");
  auto client_by_name = [](std::string_view name) -> std::string {
    if (name == "A") return "";
    return name.starts_with("mars") ? "mars.example" : std::string(name);
  };
  client_outcome_t outcome =
      add_client_constraints(line.settings, client_by_name, same_name, line.request);
  EXPECT_EQ(outcome.unknown, "A");
  EXPECT_TRUE(line.request.query_constraints.empty());

  scanned known("-c b -c mars -c B");
  outcome = add_client_constraints(known.settings, client_by_name, same_name, known.request);
  EXPECT_TRUE(outcome.good());
  ASSERT_EQ(known.request.query_constraints.size(), 1u);
  EXPECT_EQ(known.request.query_constraints[0].values,
            (std::vector<std::string>{"mars.example", "b"}));
}

TEST(options, usage_text) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  EXPECT_EQ(usage("reelscan", "what was wrong"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "what was wrong\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "usage: reelscan [-akvV] [-o order] [-s server] [-x exportspec] [report] [query] "
            "[volname...]\n\n"
            "<report>: [ -m | -p | -B | -C | -O | -S | -L | -X | -r reportspec ]\n"
            "<query>:  [-c client] [-N name] [-t time] [-q queryspec]\n"
            "\nor\n       reelscan -h [vV] [-s server] [report] [query]\n\n"
            "<report>: [-r reportspec]\n"
            "<query>:  [-c client] [-N name] [-t starttime] [-T endtime] [-q queryspec]\n");
}
