// The installed tree: its layout, the German catalogue, the library for programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "made_locale.h"
#include "people_files.h"
#include "system_fixture.h"

namespace qvr::test {
namespace {

using testing::HasSubstr;

// An installation below a private prefix, and the lab to ask.
class installed_test : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char directory[] = "/tmp/reelscan-installed-XXXXXX";
    if (mkdtemp(directory) == nullptr) return;
    prefix() = directory;
    command_result done =
        run_command({"cmake", "--install", BUILD_DIRECTORY, "--prefix", prefix()});
    if (done.status != 0) why() = done.err;
    if (why().empty()) site() = installation::make({"--sample", "1:4:21"}, why());
  }
  static void TearDownTestSuite() {
    site().reset();
    if (!prefix().empty()) std::filesystem::remove_all(prefix());
  }
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::exists(prefix() + "/bin/reelscan")) << why();
    if (!site()) GTEST_SKIP() << why();
  }
  static command_result shell(const std::string &line) {
    return site()->shell("set -e; cd " + prefix() + "; " + line);
  }
  static std::string &prefix() {
    static std::string directory;
    return directory;
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

TEST_F(installed_test, pages_and_completions_lie_where_they_are_looked_for) {
  for (const char *page : {"man8/reelscan.8", "man7/reelscan-query.7", "man7/reelscan-messages.7",
                           "man8/qvrlabd.8", "man8/qvrcat.8"}) {
    EXPECT_EQ(shell(std::string("gzip -t share/man/") + page + ".gz").status, 0) << page;
  }
  EXPECT_EQ(shell("test -s share/bash-completion/completions/reelscan && "
                  "test -s share/zsh/vendor-completions/_reelscan")
                .status,
            0);
}

TEST_F(installed_test, the_command_speaks_german_where_the_locale_does) {
  struct row_t {
    int line;
    const char *arguments;
    std::vector<const char *> texts;
  };
  const row_t rows[] = {
      {__LINE__, "-m", {" Status Datenträger ", "Kapazität\n", "Archiv Köln.001"}},
      {__LINE__, "-X -t 'month ago'", {" Sicherungssätze nach Art:\n", " Dateien "}},
      {__LINE__, "-q x=1", {"Unbekanntes Wort in der Abfrage: x\n", "Aufruf: reelscan "}},
      {__LINE__, "-q client=nobody", {":reelscan: Nichts passt zur Abfrage\n"}},
      {__LINE__,
       "-s 127.0.0.2",
       {"167325:reelscan: Keine Verbindung zur Mediendatenbank auf Host"}},
  };
  made_locale german("de_DE", "de_DE.UTF-8");
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    std::string line = std::string("LC_ALL=de_DE.UTF-8 bin/reelscan ") + row.arguments;
    command_result result = shell(line + " 2>&1 || true");
    for (const char *text : row.texts) EXPECT_THAT(result.out, HasSubstr(text));
  }
}

// The library gives programs what the command has: the same save sets.
TEST_F(installed_test, the_example_builds_with_pkg_config_and_cmake) {
  command_result by_hand = shell(
      "export PKG_CONFIG_PATH=$(dirname $(find . -name qvrmmdb.pc)); "
      "c++ -std=c++20 -Wall -Wextra -Werror share/doc/libqvrmmdb-dev/examples/list_savesets.cpp "
      "$(pkg-config --cflags --libs qvrmmdb) -o by_hand && ./by_hand vault mars");
  ASSERT_EQ(by_hand.status, 0) << by_hand.err;
  std::set<std::string> listed = found(by_hand.out, "(?:^|\n)([0-9]+) ");
  std::string ids = shell("bin/reelscan -a -c mars -xc, -r ssid").out;
  EXPECT_THAT(listed, testing::ElementsAreArray(found(ids, "([0-9]+)")));

  command_result by_cmake = shell(
      "mkdir program && cd program && printf '%s\\n' 'cmake_minimum_required(VERSION 3.25)' "
      "'project(program CXX)' 'find_package(qvrmmdb 0.1 REQUIRED)' "
      "'add_executable(by_cmake ../share/doc/libqvrmmdb-dev/examples/list_savesets.cpp)' "
      "'target_link_libraries(by_cmake qvrmmdb::qvrmmdb)' >CMakeLists.txt && "
      "cmake -S . -B build -DCMAKE_PREFIX_PATH=.. >log && cmake --build build >>log && "
      "build/by_cmake vault nobody");
  EXPECT_EQ(by_cmake.status, 1) << by_cmake.err;
  EXPECT_EQ(by_cmake.err + by_cmake.out, "");
}

}  // namespace
}  // namespace qvr::test
