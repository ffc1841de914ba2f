// An installation on a private host, and the command run against it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "netns.h"
#include "run_command.h"

namespace qvr::test {

// Words of a command line: blanks separate them, "~" stands for a blank inside one.
inline std::vector<std::string> words_of(std::string_view line) {
  std::vector<std::string> words;
  bool open = false;
  for (char c : line) {
    if (c == ' ') {
      open = false;
      continue;
    }
    if (!open) words.emplace_back();
    open = true;
    words.back() += c == '~' ? ' ' : c;
  }
  return words;
}

// The lab on a host named "vault", which "--help" is another name of.
class installation {
 public:
  // Null when this machine gives no namespaces; `why` then says so.
  static std::unique_ptr<installation> make(const std::vector<std::string> &lab_options,
                                            std::string &why) {
    private_host_options host;
    host.set_file("/etc/hosts", "127.0.0.1 localhost\n127.0.1.1 vault --help\n::1 ip6-localhost\n");
    std::unique_ptr<installation> made(new installation);
    made->host_ = private_host::make(host, why);
    if (!made->host_) return nullptr;
    command_options options;
    options.host = made->host_.get();
    std::vector<std::string> argv = {built_program("qvrlabd")};
    argv.insert(argv.end(), lab_options.begin(), lab_options.end());
    made->lab_ = std::make_unique<background_command>(argv, options);
    if (made->lab_->wait_for("ready ")) return made;
    why = "the lab does not start: " + made->lab_->result().err;
    return made;
  }

  command_result run(std::vector<std::string> words, std::vector<std::string> env = {}) const {
    words.insert(words.begin(), built_program("reelscan"));
    command_options options;
    options.host = host_.get();
    options.env.insert(options.env.end(), env.begin(), env.end());
    return run_command(words, options);
  }
  command_result run(std::string_view line) const { return run(words_of(line)); }

  // A program beside the command; both its streams are its standard output.
  std::unique_ptr<background_command> start(const std::vector<std::string> &argv) const {
    command_options options;
    options.host = host_.get();
    options.err_to_out = true;
    return std::make_unique<background_command>(argv, options);
  }

  // A shell line, in which $reelscan is the command.
  command_result shell(const std::string &line) const {
    command_options options;
    options.host = host_.get();
    options.env.push_back("reelscan=" + built_program("reelscan"));
    return run_command({"sh", "-c", line}, options);
  }

 private:
  installation() = default;
  std::unique_ptr<private_host> host_;
  std::unique_ptr<background_command> lab_;
};

// One installation with a small sample for all tests of a suite.
class system_test : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string &reason = why();
    site() = installation::make({"--sample", "1:4:21"}, reason);
  }
  static void TearDownTestSuite() { site().reset(); }
  void SetUp() override {
    if (!site()) GTEST_SKIP() << why();
    ASSERT_EQ(why(), "");
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

}  // namespace qvr::test
