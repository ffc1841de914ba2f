// Trees of record files as qvrlabd writes them, listed by qvrcat.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "small_catalogue.h"
#include "system_fixture.h"
#include "temp_dir.h"

namespace qvr::test {
namespace {

namespace fs = std::filesystem;

class qvrcat_test : public testing::Test {
 protected:
  void write_tree(const std::string &layout) {
    const std::string file = root + "/catalogue";
    ASSERT_EQ(store_small_catalogue(file), "");
    command_result made =
        run_command({built_program("qvrlabd"), "--catalogue", file, "--write-tree", root + "/tree",
                     "--device", "/vault/bay", "--layout", layout, "--no-serve"});
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.out + made.err, "");
  }
  command_result list(const std::string &words) const {
    std::vector<std::string> argv = words_of(words);
    argv.insert(argv.begin(), built_program("qvrcat"));
    command_options options;
    options.directory = root;
    return run_command(argv, options);
  }

  const temp_dir directory;
  const std::string root = directory.path();
};

// By their save times: 1767402000 is save set 13, 1767574800 save set 15 of mars.
constexpr char SS_13[] =
    "1767402000\tmars\t/\t0x304\t50000\t*vm_name:web1;annotation:before the great move;"
    "group:Weekly;index record version:2.0;record file name:/vault/bay/mars/0/2.0/meta_rec/"
    "_ts10k_176740/1767402000.rec;\n";
constexpr char SS_15[] =
    "1767574800\tmars\t/tmp\t0x304\t700\tindex record version:2.0;record file name:/vault/bay/mars/"
    "0/2.0/meta_rec/_ts10k_176757/1767574800.rec;\n";
constexpr char USAGE[] =
    "usage: qvrcat ROOT -d DEVICE_PATH [-c CLIENT] [-a APPID] [-u SUBSPACE] [-N NAME] [-f FROM] "
    "[-t TO] [-n COUNT] [-T TIME[,TIME...]] [-U] [-D LEVEL]\n";

// As a question by save time tells it.
std::string without_version(std::string line) {
  constexpr std::string_view VERSION = "index record version:2.0;";
  return line.erase(line.find(VERSION), VERSION.size());
}

struct list_row {
  int line;
  const char *words;
  int status;
  std::string out, err = {};
};

TEST_F(qvrcat_test, lines_and_statuses) {
  write_tree("2");
  const std::string both = std::string(SS_13) + SS_15;
  const list_row rows[] = {
      {__LINE__, "tree -d /vault/bay -c mars", 0, both},
      {__LINE__, "-d vault/bay -c MARS tree -f 1767402000 -t 1767574800", 0, both},
      {__LINE__, "tree -d /vault/bay -c mars -n 1", 0, SS_15},
      {__LINE__, "tree -d /vault/bay -c mars -t 1767574799", 0, SS_13},
      {__LINE__, "tree -d /vault/bay -c mars -N /tmp", 0, SS_15},
      {__LINE__, "tree -d /vault/bay -c mars -T 1767402000,5,1767574800", 0,
       without_version(SS_15) + without_version(SS_13)},
      {__LINE__, "tree -d /vault/bay -c mars -f 5 -t 6", 1, ""},
      {__LINE__, "tree -d /vault/bay -c mars -T 5", 1, ""},
      {__LINE__, "tree -d /vault/bay -c moon", 1, ""},
      {__LINE__, "tree -d /vault/bay -c mars -a 19", 1, ""},
      {__LINE__, "tree -d /vault/bay -c mars -u a", 1, ""},
      {__LINE__, "none -d /vault/bay -c mars", 2, "", "qvrcat: No such file or directory\n"},
      {__LINE__, "tree -d .. -c mars", 2, "",
       "qvrcat: Unable to set up a connection due to invalid device path '/..'.\n"},
      {__LINE__, "tree -c mars", 2, "", USAGE},
      {__LINE__, "tree -d /vault/bay -T 5,x", 2, "", USAGE},
      {__LINE__, "tree -d /vault/bay -n -1", 2, "", USAGE},
  };
  for (const list_row &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = list(row.words);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, row.err);
  }
}

TEST_F(qvrcat_test, a_list_that_is_lost) {
  write_tree("2");
  command_result result = run_command(
      {"sh", "-c",
       built_program("qvrcat") + ' ' + root + "/tree -d /vault/bay -c mars >/dev/full"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "qvrcat: cannot write to the standard output\n");
}

// What is wrong in a tree costs its record alone, and -D 1 names it.
TEST_F(qvrcat_test, locked_moved_and_damaged_records) {
  write_tree("2");
  const std::string records = root + "/tree/vault/bay/mars/0/2.0/meta_rec/",
                    file_13 = records + "_ts10k_176740/1767402000.rec";
  std::ofstream(file_13 + ".lck").flush();
  EXPECT_EQ(list("tree -d /vault/bay -c mars").out, SS_15);
  EXPECT_EQ(list("tree -d /vault/bay -c mars -U").out,
            "1767402000\tmars\t\t0x10000\t0\tindex record version:2.0;\n" + std::string(SS_15));
  fs::remove(file_13 + ".lck");
  fs::resize_file(file_13, 5000);
  command_result result = list("tree -d /vault/bay -c mars -D 1");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, SS_15);
  EXPECT_NE(result.err.find("Detected an inconsistency in the index record "
                            "'/vault/bay/mars/0/2.0/meta_rec/_ts10k_176740/1767402000.rec' with "
                            "save time '1767402000'.\n"),
            std::string::npos)
      << result.err;
  fs::create_directories(records + "a/b");
  fs::rename(records + "_ts10k_176757", records + "a/b/_ts10k_176757");
  EXPECT_NE(list("tree -d /vault/bay -c mars -u a").out.find(";index subspace:a/b;"),
            std::string::npos);

  std::ofstream(records + "stray").flush();
  result = list("tree -d /vault/bay -c mars");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "qvrcat: /vault/bay/mars/0/2.0/meta_rec/stray: Not a directory\n");

  fs::remove_all(root + "/tree");
  write_tree("1");
  EXPECT_EQ(list("tree -d /vault/bay -c mars -N /tmp").out,
            "1767574800\tmars\t/tmp\t0x304\t700\trecord file name:/vault/bay/mars/0/index/"
            "1767574800.rec;\n");
}

}  // namespace
}  // namespace qvr::test
