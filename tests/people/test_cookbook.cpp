// The commands of the documents, run against the lab as a reader would.
#include <gtest/gtest.h>

#include "people_files.h"
#include "system_fixture.h"

namespace qvr::test {
namespace {

struct example_t {
  std::string where;   // file and line
  std::string script;  // the commands of one block
  int status = 0;      // of its last command
};

// The indented blocks that hold lines with a prompt. What else such a block holds is output.
std::vector<example_t> examples_of(const std::string &file) {
  std::vector<example_t> examples;
  example_t example;
  int number = 0;
  std::regex status(" # status ([0-9]+)$");
  auto end_block = [&] {
    if (!example.script.empty()) examples.push_back(example);
    example = {};
  };
  for (const std::string &line : lines_of(file_text(SOURCE_DIRECTORY "/" + file))) {
    number++;
    std::size_t text = line.find_first_not_of(' ');
    if (text == std::string::npos || text < 4) {
      end_block();
    } else if (line.substr(text).starts_with("$ ") || line.substr(text).starts_with("> ")) {
      if (example.script.empty()) example.where = file + ":" + std::to_string(number);
      std::smatch wanted;
      if (std::regex_search(line, wanted, status)) example.status = std::stoi(wanted[1]);
      example.script += line.substr(text + 2) + "\n";
    }
  }
  end_block();
  return examples;
}

class documents : public testing::Test {
 protected:
  static void SetUpTestSuite() { site() = installation::make({"--sample", "1"}, why()); }
  static void TearDownTestSuite() { site().reset(); }
  void SetUp() override {
    if (!site()) GTEST_SKIP() << why();
  }
  static std::unique_ptr<installation> &site() {
    static std::unique_ptr<installation> made;
    return made;
  }
  static std::string &why() {
    static std::string reason;
    return reason;
  }
};

TEST_F(documents, their_commands_work) {
  const std::pair<const char *, std::size_t> files[] = {
      {"README.md", 1}, {"docs/tour.md", 10}, {"docs/scripting.md", 5}, {"docs/cookbook.md", 25}};
  const std::string enter =
      "set -e; export LC_ALL=C.UTF-8 PATH=$(dirname $reelscan):$PATH; "
      "cd $(mktemp -d); trap 'rm -r \"$PWD\"' EXIT; ";
  for (auto [file, fewest] : files) {
    std::vector<example_t> examples = examples_of(file);
    EXPECT_GE(examples.size(), fewest) << file;
    for (const example_t &example : examples) {
      if (example.script.starts_with("scripts/")) continue;  // builds
      SCOPED_TRACE(example.where + "\n" + example.script);
      command_result result = site()->shell(enter + example.script);
      EXPECT_EQ(result.status, example.status) << result.err;
      if (example.status != 0) continue;
      EXPECT_EQ(result.err, "");
      EXPECT_NE(result.out, "");
    }
  }
}

// The examples of the manual pages, in which a line is a command.
TEST_F(documents, examples_of_the_manual_pages_work) {
  for (const char *page : {"reelscan.8", "reelscan-query.7"}) {
    std::set<std::string> commands = found(file_text(BUILD_DIRECTORY "/man/" + std::string(page)),
                                           "\n\\.Dl \\$ (reelscan[^\n]+)");
    EXPECT_GE(commands.size(), 3u);
    for (const std::string &command : commands) {
      bool none = command.find("a,b") != std::string::npos;  // a name that the lab does not have
      command_result result = site()->shell("PATH=$(dirname $reelscan):$PATH; " + command);
      EXPECT_EQ(result.status, none ? 1 : 0) << command << "\n" << result.err;
    }
  }
}

// Programs that were not written here find the same values in the exports.
TEST_F(documents, other_programs_read_the_same_table) {
  const char *readers[] = {
      "mlr --icsvlite --ifs tab --onidx --ofs '|' cat table.tsv",
      "sqlite3 :memory: '.mode ascii' '.separator \"\\t\" \"\\n\"' '.import table.tsv t' "
      "'.mode list' 'select * from t'",
      "xsltproc table.xsl table.xml",
  };
  std::string prepare =
      "set -e; export LC_ALL=C.UTF-8; cd $(mktemp -d); trap 'rm -r \"$PWD\"' EXIT; "
      "$reelscan -a -xc'\\t' -r 'ssid,client,totalsize(20),annotation,name' >table.tsv; "
      "$reelscan -a -xm -r 'ssid,client,totalsize(20),annotation,name' >table.xml; "
      "xmllint --noout table.xml; "
      "cat >table.xsl <<'XSL'\n"
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:output method='text'/><xsl:template match='/*'><xsl:for-each select='result'>"
      "<xsl:value-of select=\"concat(ssid,'|',client,'|',total,'|',annotation,'|',name,'&#10;')\"/>"
      "</xsl:for-each></xsl:template></xsl:stylesheet>\nXSL\n";
  command_result plain = site()->shell(prepare + "sed 1d table.tsv | tr '\\t' '|' | sort");
  ASSERT_EQ(plain.err, "");
  ASSERT_GT(lines_of(plain.out).size(), 1000u);
  for (const char *reader : readers)
    EXPECT_EQ(site()->shell(prepare + reader + " | sort").out, plain.out) << reader;
}

}  // namespace
}  // namespace qvr::test
