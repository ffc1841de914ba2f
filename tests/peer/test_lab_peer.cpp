// The lab as others see it: rpcinfo of rpcbind, and tshark's dissectors.
#include <gtest/gtest.h>

#include <sstream>

#include "raw_rpc.h"
#include "run_command.h"
#include "temp_dir.h"

namespace qvr::test {
namespace {

// A lab on the port of the system's port mapper, which is where these peers look, in a host of its
// own.
class lab_peer : public testing::Test {
 protected:
  void SetUp() override {
    private_host_options options;
    options.set_file("/etc/hosts", "127.0.0.1 localhost vault\n");
    options.set_file("/etc/services", "qvrrpc 111/tcp\nsunrpc 111/tcp\nsunrpc 111/udp\n");
    std::string why;
    host_ = private_host::make(options, why);
    if (!host_) GTEST_SKIP() << why;
    inside_.host = host_.get();
    // The security layer's tokens are the system's own: no published dissector reads them.
    lab_ = std::make_unique<background_command>(
        std::vector<std::string>{built_program("qvrlabd"), "--port", "111", "--sample", "1:4:5",
                                 "--no-gss"},
        inside_);
    ASSERT_TRUE(lab_->wait_for("\n")) << lab_->result().err;
  }
  void TearDown() override {
    if (lab_) {
      EXPECT_EQ(lab_->stop().status, 0);
    }
  }

  bool have(const char *program) {
    return run_command({"sh", "-c", std::string("command -v ") + program}).status == 0;
  }
  // Runs `body` in a child process inside the host; true when it answered true.
  template <class Body>
  bool inside(Body body) {
    pid_t child = fork();
    if (child == 0) _exit(host_->enter() && body() ? 0 : 1);
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0;
  }

  std::unique_ptr<private_host> host_;
  command_options inside_;
  temp_dir directory_;
  std::unique_ptr<background_command> lab_;
};

TEST_F(lab_peer, rpcinfo_lists_and_reaches_the_daemons) {
  if (!have("rpcinfo")) GTEST_SKIP() << "rpcinfo is missing";
  command_result list = run_command({"rpcinfo", "-p", "127.0.0.1"}, inside_);
  EXPECT_EQ(list.status, 0) << list.err;
  std::istringstream lines(list.out);
  std::string line, word;
  std::vector<std::string> rows;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string row;
    for (int i = 0; i < 3 && words >> word; i++) row += word + " ";
    rows.push_back(row);
  }
  EXPECT_EQ(rows, (std::vector<std::string>{"program vers proto ", "100000 2 tcp ", "100000 2 udp ",
                                            "390113 1 tcp ", "390109 2 tcp ", "390107 6 tcp "}));
  struct {
    int line;
    std::vector<std::string> argv;
    int status;
  } calls[] = {
      {__LINE__, {"rpcinfo", "-t", "127.0.0.1", "390107", "6"}, 0},
      {__LINE__, {"rpcinfo", "-t", "127.0.0.1", "390113", "1"}, 0},
      {__LINE__, {"rpcinfo", "-t", "127.0.0.1", "390107", "5"}, 1},
      {__LINE__, {"rpcinfo", "-u", "127.0.0.1", "100000", "2"}, 0},
  };
  for (const auto &row : calls) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(run_command(row.argv, inside_).status, row.status);
  }
}

// One connection to each daemon, and on it every procedure, with arguments that do and do not fit.
bool talk_to_everyone() {
  struct {
    std::uint32_t program, version;
    std::vector<std::uint32_t> procedures;
  } rows[] = {
      {100000, 2, {0, 1, 2, 3, 4, 5}},
      {390113, 1, {0, 10, 12, 101, 102, 123, 124, 125, 126}},
      {390109, 2, {0, 101, 102, 124}},
      {390107, 6, {0, 53, 54, 55, 57, 58, 63, 64, 65, 68, 69, 70, 76, 78, 90, 96, 99}},
  };
  for (const auto &row : rows) {
    raw_client mapper(111, 100000, 2);
    std::string which = raw_out().u32(row.program).u32(row.version).u32(6).u32(0).bytes;
    std::uint32_t port = mapper.call(3, which).in().u32();
    raw_client client(static_cast<std::uint16_t>(port), row.program, row.version);
    client.credential = {1, raw_out().u32(7).text("vault").u32(0).u32(0).u32(0).bytes};
    for (std::uint32_t procedure : row.procedures) {
      for (std::size_t size : {0u, 16u, 64u, 256u}) {
        if (!client.call(procedure, std::string(size, '\0')).arrived) return false;
      }
    }
  }
  return true;
}

TEST_F(lab_peer, tshark_reads_a_session_without_a_malformed_packet) {
  if (!have("tshark")) GTEST_SKIP() << "tshark is missing";
  std::string file = directory_.file("session.pcapng");
  command_options both = inside_;
  both.err_to_out = true;
  background_command capture({"tshark", "-i", "lo", "-w", file}, both);
  if (!capture.wait_for("Capture started", std::chrono::seconds(20)))
    GTEST_SKIP() << "no capture here: " << capture.result().out;
  EXPECT_TRUE(inside(talk_to_everyone));
  command_result report = run_command(
      {built_program("reelscan"), "-s", "localhost", "-a", "-r", "client,name,volume"}, inside_);
  EXPECT_EQ(report.status, 0) << report.err;
  run_command({"rpcinfo", "-p", "127.0.0.1"}, inside_);
  usleep(500000);  // what is on its way reaches the file
  capture.stop(SIGINT);

  auto count = [&](const std::string &filter) {
    command_result result =
        run_command({"tshark", "-o", "rpc.dissect_unknown_programs:TRUE", "-r", file, "-Y", filter,
                     "-T", "fields", "-e", "frame.number", "-e", "_ws.col.Info"},
                    inside_);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(filter.find("malformed") == std::string::npos || result.out.empty()) << result.out;
    return std::count(result.out.begin(), result.out.end(), '\n');
  };
  EXPECT_EQ(count("_ws.malformed || rpc.fragment.error || rpc.fragment.overlap"), 0);
  auto calls = count("rpc.msgtyp == 0"), replies = count("rpc.msgtyp == 1");
  EXPECT_GT(calls, 100);
  EXPECT_EQ(calls, replies);
  EXPECT_GT(count("portmap"), 20);
}

}  // namespace
}  // namespace qvr::test
