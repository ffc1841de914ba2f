// The names that a client goes by, from the command line to the rows.
#include "system_fixture.h"

namespace qvr::test {
namespace {

class client_names : public system_test {};

TEST_F(client_names, every_name_gives_the_same_rows) {
  static constexpr struct {
    int line;
    const char *words;
    const char *as;  // a command line that prints the same; null: no such client
  } rows[] = {
      {__LINE__, "-c ares -r ssid,name", "-c mars -r ssid,name"},
      {__LINE__, "-c mars.example -r ssid,name", "-c mars -r ssid,name"},
      {__LINE__, "-c MARS -r ssid,name", "-c mars -r ssid,name"},
      {__LINE__, "-c mars -l -r ssid,name", "-c mars -r ssid,name"},
      {__LINE__, "-c venus -r ssid,client", "-c venus.example -r ssid,client"},
      {__LINE__, "-c localhost -r ssid,name", "-c vault -r ssid,name"},
      {__LINE__, "-c 127.0.1.1 -r ssid,name", "-c vault -r ssid,name"},
      {__LINE__, "-c nobody -r ssid,name", nullptr},
      {__LINE__, "-c 10.99.99.99 -r ssid,name", nullptr},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    command_result result = site()->run(row.words);
    if (row.as == nullptr) {
      EXPECT_EQ(result.status, 2);
      EXPECT_EQ(result.out, "");
      std::string name = words_of(row.words)[1];
      EXPECT_EQ(result.err, "23734:reelscan: invalid client name: " + name + "\n");
      continue;
    }
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, site()->run(row.as).out);
    EXPECT_NE(result.out, "");
  }
}

// The server keeps a client's file index under the client's id; a person writes and reads its name.
TEST_F(client_names, index_save_sets) {
  command_result named = site()->run("-r client,name -q name=index:mars");
  EXPECT_EQ(named.status, 0);
  EXPECT_NE(named.out.find(" index:mars\n"), std::string::npos);
  command_result other = site()->run("-r client,name -q name=index:nobody");
  EXPECT_EQ(other.status, 1);
  EXPECT_EQ(other.err, "6095:reelscan: no matches found for the query\n");
}

}  // namespace
}  // namespace qvr::test
