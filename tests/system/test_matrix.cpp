// Each predefined report with each kind of query: whole outputs and the calls made, held against
// the files in golden/, one a report.
//
// With REELSCAN_GOLDEN_WRITE set, the files are written anew. Read them before they are kept.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "lab_calls.h"
#include "small_catalogue.h"
#include "system_fixture.h"

namespace qvr::test {
namespace {

constexpr const char *REPORTS[][2] = {
    {"default", ""}, {"m", "-m"}, {"p", "-p"}, {"v", "-v"}, {"V", "-V"}, {"k", "-k"}, {"B", "-B"},
    {"S", "-S"},     {"L", "-L"}, {"X", "-X"}, {"C", "-C"}, {"O", "-O"}, {"h", "-h"},
};

// Days in January 2026 are told, so that nothing depends on the clock.
constexpr const char *QUERIES[] = {
    "-a",
    "-c mars",
    "-c moon",
    "-c vault -c mars",
    "-N /",
    "-t 1/3/2026",
    "-q savetime<1/3/2026",
    "-t 1/2/2026 -q savetime<1/4/2026",
    "-a -q level=full",
    "-a -q level>=9,level<=incr",
    "-a TAPE.B",
    "-a TAPE.A TAPE.B",
    "-a -q pool=Offsite",
    "-a -q location=Vault",
    "-a -q barcode=A00001",
    "-a -q volid=2",
    "-a -q ssid=12",
    "-q savetime=1767402000",
    "-q savetime=1767402000 -c mars",
    "-a -q !incomplete",
    "-a -q suspect",
    "-a -q full",
    "-a -q group=Weekly",
    "-a -q annotation=great",
    "-a -A group",
    "-a -A !group",
    "-a -q ssretentdur=30~days",
    "-c mars -q pool=Offsite",
    "-a -q mounts>2 -c vault",
};

// A change of a save set, a copy that was taken back, and a save set that is gone.
constexpr const char *HISTORY =
    "insert into history select 1,ssid,0,1,1767500000,'root@vault','ssretent','1769994000',"
    "'2147483647',1767600000,client,name,clientid from saveset where id=12;"
    "insert into history select 2,ssid,1767488400,0,1767488400,'root@vault','clretent','',"
    "'9223372036854775807',9223372036854775807,client,name,clientid from saveset where id=13;"
    "insert into history select 3,ssid,0,2,1767590000,'lea@mars','label','/tmp','',"
    "9223372036854775807,client,name,clientid from saveset where id=15;"
    "insert into history select 4,ssid,0,2,1767590000,'lea@mars','ssid','15','',"
    "9223372036854775807,client,name,clientid from saveset where id=15;";

class matrix : public testing::TestWithParam<int> {
 protected:
  static void SetUpTestSuite() {
    char name[] = "/tmp/matrix-XXXXXX";
    directory = mkdtemp(name);
    why = store_small_catalogue(directory + "/catalogue");
    command_options history;
    history.input = HISTORY;
    if (why.empty()) why = run_command({"sqlite3", directory + "/catalogue"}, history).err;
    if (why.empty())
      site = installation::make(
          {"--catalogue", directory + "/catalogue", "--log", directory + "/log"}, why);
  }
  static void TearDownTestSuite() {
    site.reset();
    for (const char *file : {"/catalogue", "/log"}) std::remove((directory + file).c_str());
    std::remove(directory.c_str());
  }

  static std::string told(lab_calls &calls, const std::string &words) {
    command_result result = site->run(words);
    std::string text = "$ reelscan " + words + "\n" + result.out;
    // What is always said is told in the tests of the command line.
    if (std::size_t usage = text.find("usage: reelscan"); usage != text.npos)
      text = text.substr(0, usage) + "(usage)\n";
    if (!result.err.empty()) text += "! " + result.err;
    return text + "= " + std::to_string(result.status) + ", calls " + calls.next() + "\n\n";
  }

  static inline std::string directory, why;
  static inline std::unique_ptr<installation> site;
};

TEST_P(matrix, golden) {
  if (!site) GTEST_SKIP() << why;
  const auto &[name, option] = REPORTS[GetParam()];
  lab_calls calls(directory + "/log");
  calls.next();
  std::string text;
  for (const char *query : QUERIES) {
    std::string words = option;
    // History takes no -a, and days near the clock's would be told by -X.
    if (words == "-h" && std::string_view(query).starts_with("-a"))
      query += std::string_view(query) == "-a" ? 2 : 3;
    std::string_view asked = query;
    if (words == "-X" && asked.find("savetime") == asked.npos) words += " -q savetime<2/1/2026";
    if (words == "-h" && asked.find("-t") == asked.npos) words += " -t 1/1/2026";
    words += (words.empty() || asked.empty() ? "" : " ") + std::string(query);
    text += told(calls, words);
    // The inventories take no query.
    if (std::string_view(option) == "-C" || std::string_view(option) == "-O") {
      text = told(calls, option) + text;
      break;
    }
  }
  std::string file = std::string(GOLDEN_DIRECTORY) + "/" + name + ".txt";
  if (std::getenv("REELSCAN_GOLDEN_WRITE") != nullptr) std::ofstream(file) << text;
  std::stringstream golden;
  golden << std::ifstream(file).rdbuf();
  EXPECT_EQ(text, golden.str());
}

INSTANTIATE_TEST_SUITE_P(reports, matrix, testing::Range(0, static_cast<int>(std::size(REPORTS))),
                         [](const auto &report) { return std::string(REPORTS[report.param][0]); });

}  // namespace
}  // namespace qvr::test
