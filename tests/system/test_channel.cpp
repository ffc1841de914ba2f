// Reports over every flavour and over the encrypted channel: what is asked for decides, and the
// report is the same.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "system_fixture.h"
#include "temp_dir.h"

namespace qvr::test {
namespace {

// The default report, and one with other columns.
constexpr const char *REPORT = "-a";
constexpr const char *COLUMNS = "-a -r volume,client,savetime,sumsize,level,name";

class channel : public testing::Test {
 protected:
  // Null when this machine gives no namespaces.
  std::unique_ptr<installation> site(std::string_view options) {
    std::vector<std::string> words = words_of(options);
    for (const char *word : {"--sample", "1:4:21", "--now", "1767225600", "--log"}) {
      words.emplace_back(word);
    }
    words.push_back(log());
    std::remove(log().c_str());
    return installation::make(words, why);
  }
  std::string log() const { return directory_.file("log"); }
  // How the calls on the media database were authenticated: each word once, sorted.
  std::string flavours() const {
    std::ifstream in(log());
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);) {
      std::size_t at = line.find("\"auth\":\"");
      if (line.find("\"daemon\":\"qvrmmdbd\"") == line.npos || at == line.npos) continue;
      std::string word = line.substr(at + 8, line.find('"', at + 8) - at - 8);
      if (std::find(found.begin(), found.end(), word) == found.end()) found.push_back(word);
    }
    std::sort(found.begin(), found.end());
    std::string text;
    for (const std::string &word : found) text += (text.empty() ? "" : ", ") + word;
    return text;
  }
  std::string why;
  temp_dir directory_;
};

TEST_F(channel, the_report_is_the_same_over_every_flavour) {
  const struct {
    int line;
    const char *options;
    const char *flavours;
  } rows[] = {
      {__LINE__, "--auth-methods none --fault daemon=qvrexecd,auth=long", "AUTH_UNIX"},
      {__LINE__, "--auth-methods 0.0.0.0/0,oldauth", "AUTH_KSTR full, AUTH_KSTR short"},
      {__LINE__, "--auth-methods 0.0.0.0/0,qvrauth",
       "RPCSEC_GSS, RPCSEC_GSS init, RPCSEC_GSS token"},
      {__LINE__, "--auth-methods 0.0.0.0/0,qvrauth --qop 1",
       "RPCSEC_GSS, RPCSEC_GSS init, RPCSEC_GSS token"},
      {__LINE__, "--auth-methods none", "RPCSEC_GSS, RPCSEC_GSS init, RPCSEC_GSS token"},
      {__LINE__, "--auth-methods none --no-gss", "AUTH_KSTR full, AUTH_KSTR short"},
      {__LINE__, "--auth-methods 0.0.0.0/0,qvrauth --encrypted",
       "RPCSEC_GSS init, RPCSEC_GSS on the channel, RPCSEC_GSS token"},
      {__LINE__, "--auth-methods none --encrypted --fault daemon=qvrmmdbd,fragment=400",
       "RPCSEC_GSS init, RPCSEC_GSS on the channel, RPCSEC_GSS token"},
  };
  std::string first;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    auto at = site(row.options);
    if (!at) GTEST_SKIP() << why;
    std::string out;
    for (const char *report : {REPORT, COLUMNS}) {
      command_result result = at->run(report);
      EXPECT_EQ(result.status, 0);
      EXPECT_EQ(result.err, "");
      EXPECT_GT(result.out.size(), 1000u);
      out += result.out;
    }
    EXPECT_EQ(flavours(), row.flavours);
    if (first.empty()) first = out;
    EXPECT_EQ(out, first);
  }
}

TEST_F(channel, where_it_is_wanted_nothing_weaker_is_used) {
  const struct {
    int line;
    const char *options;
    const char *told;
  } rows[] = {
      {__LINE__, "--encrypted --auth-methods 0.0.0.0/0,oldauth", "Client credential too weak"},
      {__LINE__, "--encrypted --auth-methods none --fault daemon=qvrmmdbd,proc=0,deny=2", ""},
      {__LINE__, "--encrypted --auth-methods none --no-gss", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    auto at = site(row.options);
    if (!at) GTEST_SKIP() << why;
    command_result result = at->run(REPORT);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(row.told), std::string::npos) << result.err;
    EXPECT_EQ(flavours().find("AUTH_"), std::string::npos) << flavours();
  }
}

// What goes wrong on the channel ends the connection; the report comes over the next one.
TEST_F(channel, losses_and_tampering_cost_a_connection) {
  auto plain = site("--auth-methods none");
  if (!plain) GTEST_SKIP() << why;
  std::string report = plain->run(REPORT).out;
  plain.reset();
  const struct {
    int line;
    const char *fault;
  } rows[] = {
      {__LINE__, "proc=65,lose,times=1"},
      {__LINE__, "proc=65,tamper=2000,times=1"},
      {__LINE__, "proc=65,mark=0x40000000,times=1"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.fault);
    auto at =
        site("--encrypted --auth-methods none --fault daemon=qvrmmdbd," + std::string(row.fault));
    ASSERT_NE(at, nullptr) << why;
    command_result result = at->run(REPORT);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, report);
    EXPECT_EQ(flavours().find("AUTH_"), std::string::npos) << flavours();
  }
}

TEST_F(channel, a_capture_shows_names_in_plain_only) {
  for (const char *options : {"--auth-methods none", "--auth-methods none --encrypted"}) {
    SCOPED_TRACE(options);
    auto at = site(options);
    if (!at) GTEST_SKIP() << why;
    std::string file = directory_.file("capture");
    auto capture = at->start({"dumpcap", "-q", "-i", "lo", "-w", file});
    if (!capture->wait_for("File:")) GTEST_SKIP() << "no dumpcap: " << capture->result().out;
    command_result result = at->run(REPORT);
    EXPECT_EQ(result.status, 0);
    capture->stop(SIGINT);
    std::stringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    ASSERT_GT(bytes.str().size(), 10000u);
    bool in_plain = std::string_view(options).ends_with("none");
    for (const char *name : {"saturn", "/home"}) {
      EXPECT_NE(result.out.find(name), std::string::npos) << name;
      EXPECT_EQ(bytes.str().find(name) != std::string::npos, in_plain) << name;
    }
  }
}

}  // namespace
}  // namespace qvr::test
