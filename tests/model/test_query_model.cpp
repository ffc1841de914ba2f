// The plan may never change the answer: some thousand generated queries, each by its planned road
// and by a model that tests every constraint on every record.

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <set>
#include <sstream>

#include "app_identity.h"
#include "atexit_list.h"
#include "client_identity.h"
#include "client_start.h"
#include "field_catalogue.h"
#include "kstr_auth.h"
#include "netns.h"
#include "queries.h"
#include "query_model.h"
#include "query_spec.h"
#include "report_spec.h"
#include "run_command.h"
#include "run_report.h"
#include "session.h"

namespace qvr::test {
namespace {

constexpr int QUERIES = 2500;

std::string same_name(std::string_view name) {
  return std::string(name);
}

// A report that shows the save sets of a query, by its forms of rows.
struct shape_t {
  const char *report;
  const char *order;  // null: the report's own
  bool whole;         // rows of a table leave out what is not whole
};
constexpr shape_t shapes[] = {
    {"ssid(53)", nullptr, false},
    {"ssid(53), totalsize", "cn", true},
    {"volume, ssid(53)", nullptr, true},
    {"volume, ssid(53), sumsize", "t", true},
    {"ssid(53), mediafile", nullptr, false},
    {"ssid(53), policy", "mo", false},
    {"volume, ssid(53)", "mo", false},
};

// The child's side: the client, run in the private host. What it finds goes to `told`.
class client_side {
 public:
  explicit client_side(std::FILE *told) : told_(told) {}

  bool start() {
    ks_runtime_start();
    kstr_set_application(REELSCAN_APPLICATION, REELSCAN_PROCESS_KEY);
    qvr_client_init("vault", true);
    mif_set_noretry(true);
    mif_set_server("vault");
    if (mif_connect() != MIF_CONNECTED) return tell("no connection");
    ss_page_t page;
    page.full = true;
    page.range.mr_end_time = INT64_MAX;
    catalogue_.save_sets = get_ss_page(page);
    catalogue_.volumes = get_vols_name({}, true);
    if (catalogue_.save_sets.empty() || catalogue_.volumes.empty()) return tell("no catalogue");
    output_ = std::tmpfile();
    fflush(stdout);
    return dup2(fileno(output_), STDOUT_FILENO) >= 0;
  }

  void run(std::uint64_t seed) {
    query_maker maker(catalogue_, seed);
    std::vector<model_constraint> constraints = maker.make();
    const shape_t &shape = shapes[maker.next(std::size(shapes))];
    std::string text;
    for (const model_constraint &each : constraints) text += (text.empty() ? "" : ",") + each.text;
    std::vector<std::string> expected = model_answer(catalogue_, constraints, shape.whole);
    std::set<std::string> found = planned_answer(text, shape);
    std::vector<std::string> counted;
    for (const ss_t *ss : catalogue_.save_sets.rows) {
      std::string id = ksui_text(ss->ssid, ksui_form::long_form);
      if (found.count(id) != 0 && model_counts(catalogue_, *ss, shape.whole)) counted.push_back(id);
    }
    std::sort(counted.begin(), counted.end());
    if (!expected.empty()) answered_++;
    if (counted == expected) return;
    tell("seed " + std::to_string(seed) + ": -q \"" + text + "\" -r \"" + shape.report + "\" -o " +
         (shape.order == nullptr ? "-" : shape.order) + ": planned " +
         std::to_string(counted.size()) + ", model " + std::to_string(expected.size()));
  }

  int answered() const { return answered_; }

 private:
  bool tell(const std::string &text) {
    std::fprintf(told_, "%s\n", text.c_str());
    std::fflush(told_);
    return false;
  }

  std::set<std::string> planned_answer(const std::string &text, const shape_t &shape) {
    settings_t settings;
    settings.client_alias_match = false;
    request_t request;
    request.server = "vault";
    if (shape.order != nullptr) request.sort_order = shape.order;
    const char *refusal = parse_query_spec(text, request.query_constraints, same_name);
    if (refusal == nullptr) refusal = parse_report_spec(shape.report, request.report_columns);
    if (refusal != nullptr) tell(text + ": " + refusal);
    close_report(request.report_columns);
    mif_clear_error();
    run_report(settings, request);
    fflush(stdout);
    return ids_of_output();
  }

  // Every long identifier in what was printed.
  std::set<std::string> ids_of_output() {
    std::set<std::string> ids;
    off_t size = lseek(STDOUT_FILENO, 0, SEEK_END);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (pread(STDOUT_FILENO, text.data(), text.size(), 0) != size) tell("unreadable output");
    if (ftruncate(STDOUT_FILENO, 0) != 0 || lseek(STDOUT_FILENO, 0, SEEK_SET) != 0) tell("output");
    std::istringstream words(text);
    for (std::string word; words >> word;) {
      if (word.size() == KSUI_LONG_LENGTH) ids.insert(word);
    }
    return ids;
  }

  std::FILE *told_;
  std::FILE *output_ = nullptr;
  model_catalogue catalogue_;
  int answered_ = 0;
};

// The process of the client: its faults, a line each, go to `told`.
[[noreturn]] void client_process(const private_host &host, std::FILE *told) {
  setenv("TZ", "UTC", 1);
  if (!host.enter() || std::freopen("/dev/null", "w", stderr) == nullptr) {
    std::fprintf(told, "cannot enter the private host\n");
    std::fflush(told);
    _exit(1);
  }
  client_side client(told);
  if (client.start()) {
    for (std::uint64_t seed = 1; seed <= QUERIES; seed++) client.run(seed);
    if (client.answered() < QUERIES / 2) std::fprintf(told, "too few queries find something\n");
  }
  std::fflush(told);
  mif_set_server({});
  _exit(0);
}

TEST(query_model, the_plan_never_changes_the_answer) {
  std::string why;
  std::unique_ptr<private_host> host = private_host::make(why);
  if (!host) GTEST_SKIP() << why;
  command_options options;
  options.host = host.get();
  background_command lab({built_program("qvrlabd"), "--sample", "5:4:15"}, options);
  ASSERT_TRUE(lab.wait_for("ready ")) << lab.result().err;

  std::FILE *told = std::tmpfile();
  ASSERT_NE(told, nullptr);
  std::fflush(nullptr);
  pid_t child = fork();
  if (child == 0) client_process(*host, told);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  std::string faults(20000, '\0');
  std::rewind(told);
  faults.resize(std::fread(faults.data(), 1, faults.size(), told));
  std::fclose(told);
  EXPECT_EQ(faults, "");
}

}  // namespace
}  // namespace qvr::test
