#include <gtest/gtest.h>

#include "run_command.h"

namespace qvr::test {
namespace {

using namespace std::chrono_literals;

TEST(run_command, keeps_streams_status_and_time) {
  struct {
    int line;
    const char *script;
    const char *input;
    int status;
    bool timed_out;
    const char *out, *err;
  } rows[] = {
      {__LINE__, "echo a; echo b >&2; exit 3", "", 3, false, "a\n", "b\n"},
      {__LINE__, "cat; kill -TERM $$", "text", 128 + SIGTERM, false, "text", ""},
      {__LINE__, "exec 0<&-; echo done", "never read", 0, false, "done\n", ""},
      {__LINE__, "echo early; exec sleep 60", "", 128 + SIGKILL, true, "early\n", ""},
      {__LINE__, "echo $WORD-$HOME", "", 0, false, "yes-\n", ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    command_options options;
    options.input = row.input;
    options.timeout = row.timed_out ? 300ms : 30000ms;
    options.env = {"WORD=yes", "HOME"};
    command_result result = run_command({"sh", "-c", row.script}, options);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.timed_out, row.timed_out);
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, row.err);
  }
  EXPECT_EQ(run_command({"/no/such/program"}).status, 127);
}

TEST(run_command, large_streams_do_not_block_each_other) {
  command_options options;
  options.input = std::string(3 << 20, 'x');
  command_result result = run_command({"sh", "-c", "tee /dev/stderr"}, options);
  EXPECT_EQ(result.out.size(), options.input.size());
  EXPECT_EQ(result.err.size(), options.input.size());
}

TEST(private_host, has_its_own_names_and_loopback) {
  private_host_options options;
  options.set_file("/etc/hosts", "127.0.0.1 localhost\n192.0.2.7 mars\n");
  options.addresses = {"192.0.2.7"};
  options.empty_directories = {"/run"};
  std::string why;
  auto host = private_host::make(options, why);
  if (!host) GTEST_SKIP() << why;
  command_options inside;
  inside.host = host.get();
  command_result result = run_command(
      {"sh", "-c", "hostname; getent hosts mars; ls /run | wc -l; exec 3<>/dev/null; echo ok"},
      inside);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "vault\n192.0.2.7       mars\n0\nok\n");
}

TEST(background_command, is_waited_for_and_stopped) {
  background_command command(
      {"sh", "-c", "trap 'echo bye; exit 5' TERM; echo ready; while :; do sleep 0.1; done"});
  ASSERT_TRUE(command.wait_for("ready\n"));
  command_result result = command.stop();
  EXPECT_EQ(result.status, 5);
  EXPECT_EQ(result.out, "ready\nbye\n");
}

}  // namespace
}  // namespace qvr::test
