#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "debug_config.h"
#include "debug_files.h"
#include "debug_line.h"
#include "debug_settings.h"
#include "excepted_fds.h"
#include "install_paths.h"
#include "msg_process.h"
#include "progname.h"
#include "tee.h"
#include "temp_dir.h"

namespace qvr {
namespace {

namespace fs = std::filesystem;

template <class F>
std::string stderr_of(F &&body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

std::string file_text(const fs::path &path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

class debug_output : public testing::Test {
 protected:
  void SetUp() override {
    ks_set_progname("reelscan");
    debug_words.time_stamps = 0;
  }
  void TearDown() override {
    debug_set_level(0);
    debug_set_mask(0);
    debug_words.time_stamps = 1;
    debug_words.file_time_prefix = 0;
    for (const char *name :
         {"QVR_STRICT_LEVEL", "QVR_DEBUG_DIR", "QVR_DIR_PATH", "QVR_TMP_DIR", "QVR_DEBUGPROCS"}) {
      unsetenv(name);
    }
  }
  temp_dir directory_;
};

TEST_F(debug_output, levels_and_mask_open_lines) {
  struct row {
    int line, level;
    unsigned mask;
    int of;
    bool open;
  };
  for (const row &r : {row{__LINE__, 0, 0, 0, true},
                       {__LINE__, -1, 0, 0, false},
                       {__LINE__, -1, 1023, 0, false},
                       {__LINE__, 0, 0, 1, false},
                       {__LINE__, 0, 4, 3, true},
                       {__LINE__, 0, 4, 2, false},
                       {__LINE__, 0, 512, 10, true},
                       {__LINE__, 0, 0xffffffff, 11, false},
                       {__LINE__, 5, 0, 5, true},
                       {__LINE__, 5, 0, 6, false},
                       {__LINE__, 15, 0, 13, true}}) {
    SCOPED_TRACE(r.line);
    debug_set_level(r.level);
    debug_set_mask(r.mask);
    int evaluated = 0;
    std::string text = stderr_of([&] { KS_DEBUG(r.of, "line %d\n", ++evaluated); });
    EXPECT_EQ(text, r.open ? "reelscan-D" + std::to_string(r.of) + " line 1\n" : "");
    EXPECT_EQ(evaluated, r.open ? 1 : 0);
  }
}

TEST_F(debug_output, line_forms) {
  debug_set_level(1);
  EXPECT_EQ(stderr_of([] { dprintf_raw("raw %s\n", "x"); }), "raw x\n");
  EXPECT_EQ(stderr_of([] { dprintf_file(0, "zero\n"); }), "reelscan-D0 Diagnostic: zero\n");
  EXPECT_EQ(stderr_of([] { dprintf_file(1, "one\n"); }), "reelscan-D1 one\n");
  EXPECT_EQ(stderr_of([] { dprintf_file(2, "two\n"); }), "");
  EXPECT_EQ(stderr_of([] { unexpected_error("a/b.cpp", 12, "why"); }),
            "reelscan-D1 An unexpected error occured in file: a/b.cpp, line: 12, message = "
            "\"why\"\n");
  // The path is that in the tree, not that of the build.
  std::string here = stderr_of([] { KS_UNEXPECTED("x"); });
  EXPECT_NE(here.find("file: tests/liblocal/test_debug.cpp, line: "), std::string::npos) << here;
  const char *nothing = getenv("QVR_STRICT_LEVEL");
  EXPECT_EQ(stderr_of([&] { dprintf_level(4, "%s", nothing); }), "reelscan-D4 null");
  errno = 77;
  EXPECT_EQ(stderr_of([] { dprintf_at<13>("%c%d\n", 'x', 1); }), "reelscan-D13 x1\n");
  EXPECT_EQ(errno, 77);
  debug_words.time_stamps = 1;
  EXPECT_THAT(stderr_of([] { dprintf_level(4, "x\n"); }),
              testing::ContainsRegex("^[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                     "\\.[0-9]{6} reelscan-D4 x\n$"));
  EXPECT_THAT(stderr_of([] { log_message("a %d\n", 3); }),
              testing::ContainsRegex("^[0-9/]{8} [0-9:]{8} reelscan: a 3\n$"));
}

TEST_F(debug_output, strict_print_picks_one_level) {
  struct row {
    int line, debug_level, level;
    const char *strict;
    bool prints;
  };
  for (const row &r : {row{__LINE__, 5, 2, nullptr, true},
                       {__LINE__, 1, 2, nullptr, false},
                       {__LINE__, 5, 2, "3", false},
                       {__LINE__, 5, 2, "2", true},
                       {__LINE__, 1, 2, "2", false},
                       {__LINE__, 5, 0, "3", true}}) {
    SCOPED_TRACE(r.line);
    debug_set_level(r.debug_level);
    r.strict != nullptr ? setenv("QVR_STRICT_LEVEL", r.strict, 1) : unsetenv("QVR_STRICT_LEVEL");
    EXPECT_EQ(stderr_of([&] { strict_print(r.level, "%s\n", "x"); }), r.prints ? "x\n" : "");
  }
}

TEST_F(debug_output, thread_keeps_its_last_error) {
  std::thread([] {
    testing::internal::CaptureStderr();
    log_message("before");
    EXPECT_EQ(thread_last_message(), "");
    thread_messages_open();
    log_message("broken %d", 1);
    for (const char *text : {"a notice, b", "notice: c", "warning, d", "a warning: e"}) {
      log_message("%s", text);
    }
    EXPECT_EQ(thread_last_message(), "broken 1");
    thread_messages_close();
    EXPECT_EQ(thread_last_message(), "");
    testing::internal::GetCapturedStderr();
  }).join();
}

TEST_F(debug_output, files_of_process_and_thread) {
  const std::string process = directory_.file("process"), own = directory_.file("thread");
  debug_set_level(2);
  // What cannot be opened leaves the output where it was.
  std::string told = stderr_of([&] {
    dfopen(directory_.file("no/file").c_str());
    dfopen_thread_level(nullptr);
    dprintf_raw("\n");
  });
  EXPECT_EQ(told, "reelscan-D2 dfopen: Unable to open file " + directory_.file("no/file") +
                      " for writing.\nreelscan-D2 dfopen_thread_level: filename is null ..\n");
  told = stderr_of([&] {
    dfopen(process.c_str());
    dfopen(process.c_str());
    std::thread([&] {
      dfopen_thread_level(own.c_str());
      dprintf_level(1, "both\n");
      debug_thread_file_only(true);
      dprintf_level(1, "own\n");
      debug_thread_file_only(false);
      dfclose_thread_level();
      dprintf_level(1, "process\n");
    }).join();
    dfclose();
  });
  EXPECT_EQ(told, "");
  const std::string opened = "reelscan: reelscan-D2 dfopen: Opened file ";
  EXPECT_EQ(file_text(process),
            opened + process + " for dprintf writing.\n" +
                "reelscan: reelscan-D1 dfopen: Warning. An Outfile already exists. Simply ignore "
                "it.\n"
                "reelscan: reelscan-D1 dfopen_thread_level: DPRINTF process-level handle already "
                "exists. Continue to create a thread-level handle.\n" +
                opened + own +
                " for dprintf writing.\n"
                "reelscan: reelscan-D1 both\n"
                "reelscan: reelscan-D1 process\n");
  EXPECT_EQ(file_text(own), opened + own +
                                " for dprintf writing.\n"
                                "reelscan: reelscan-D1 both\n"
                                "reelscan: reelscan-D1 own\n");
  // A thread's file alone does not keep its lines from going out.
  told = stderr_of([&] {
    dfopen_use_existing_thread_filehndl(std::fopen(directory_.file("third").c_str(), "a"));
    debug_words.file_time_prefix = 1;
    dprintf_level(1, "x\n");
    dfclose_thread_level();
  });
  EXPECT_EQ(told, "reelscan-D1 x\n");
  EXPECT_THAT(file_text(directory_.file("third")),
              testing::ContainsRegex("^[0-9/]{8} [0-9:.]{15} reelscan: reelscan-D1 x\n$"));
}

TEST_F(debug_output, settings_while_running) {
  struct {
    int line;
    const char *text, *told;
  } rows[] = {
      {__LINE__, "Debug=3", "7 Changing Debug level from 0 to 3 0\n"},
      {__LINE__, "Debug= \t99", "10 Changing Debug level from 3 to 15 0\n"},
      {__LINE__, "Debug=-1", "8 Changing Debug level from 15 to -1 0\n"},
      {__LINE__, "Debug=3x", "3x is an invalid value for Debug\n"},
      {__LINE__, "Debug=", " is an invalid value for Debug\n"},
      {__LINE__, "Trace=1f", "8 Changing Trace level from 0 to 1f 0\n"},
      {__LINE__, "Trace=0xffffffff", "16 Changing Trace level from 1f to ffffffff 0\n"},
      {__LINE__, "MsgID=1", "7 Changing msgID print state from 0 to 1 0\n"},
      {__LINE__, "FlushDnsCache=1", "15 Changing FlushDnsCache from 0 to 1 0\n"},
      {__LINE__, "PrintInactiveClients=1", "22 Changing PrintInactiveClientsCache from 0 to 1 0\n"},
      {__LINE__, "LogDnsThreshold=3", "17 Changing LogDnsThreshold from 0 to 5 0\n"},
      {__LINE__, "LogDnsThreshold=0", "17 Changing LogDnsThreshold from 5 to 0 0\n"},
      {__LINE__, "JukeboxThrottle=4", "17 Changing Jukebox Throttle from 0 to 4 0\n"},
      {__LINE__, "JukeboxThrottle=-4", "18 Changing Jukebox Throttle from 4 to 0 0\n"},
      {__LINE__, "DriveStealExclusion=7", "21 Changing Drive Steal Exclusion from 30 to 7 0\n"},
      {__LINE__, "DriveStealExclusion=-7", "22 Changing Drive Steal Exclusion from 7 to 30 0\n"},
      {__LINE__, "PrintDeviceSelection=0", "22 Changing Print Device Selection from 0 to 1 0\n"},
      {__LINE__, "PrintDeviceSelection=9", "22 Changing Print Device Selection from 1 to 0 0\n"},
      {__LINE__, "Other=1", ""},
      {__LINE__, "Debug", ""}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.line);
    EXPECT_EQ(stderr_of([&] { debug_settings_act(r.text); }), r.told);
  }
  msg_outlets().force_id = 0;
  debug_flags.flush_dns_cache = 0;
}

TEST_F(debug_output, signal_reads_the_file_and_deletes_it) {
  setenv("QVR_TMP_DIR", directory_.path().c_str(), 1);
  struct sigaction earlier {};
  sigaction(SIGUSR2, nullptr, &earlier);
  ASSERT_TRUE(debug_settings_install());
  directory_.write("ksdbg.tmp", "Debug=4\n");
  EXPECT_EQ(stderr_of([] { raise(SIGUSR2); }), "7 Changing Debug level from 0 to 4 0\n");
  EXPECT_EQ(debug_words.level, 4);
  EXPECT_FALSE(fs::exists(directory_.file("ksdbg.tmp")));
  EXPECT_EQ(stderr_of([] { raise(SIGUSR2); }), "");
  sigaction(SIGUSR2, &earlier, nullptr);
}

TEST_F(debug_output, level_from_the_file_of_programs) {
  setenv("QVR_DEBUG_DIR", directory_.path().c_str(), 1);
  directory_.write("qvrdebugconfig", "qvrd=9\nnoise\nREELSCAN=3\nreelscanner=7\n");
  EXPECT_EQ(stderr_of([] { debug_config_read(); }),
            "190259:reelscan: ******** Setting debug level from qvrdebugconfig file in qvr "
            "directory **************\n");
  EXPECT_EQ(debug_words.level, 3);
}

TEST_F(debug_output, waits_for_a_debugger_when_armed_and_named) {
  struct row {
    int line;
    bool armed;
    const char *list, *path;
    bool waits;
  };
  for (const row &r : {row{__LINE__, true, "qvrd,REELSCAN", "/usr/bin/reelscan.exe", true},
                       {__LINE__, true, "reelscan2", "reelscan", true},
                       {__LINE__, true, "reel", "reelscan", false},
                       {__LINE__, false, "reelscan", "reelscan", false}}) {
    SCOPED_TRACE(r.line);
    setenv("QVR_DEBUGPROCS", r.list, 1);
    debug_wait_arm(r.armed);
    int naps = 0;
    std::string told = stderr_of([&] {
      debug_wait_for_debugger(r.path, [&](unsigned seconds) {
        EXPECT_EQ(seconds, 10u);
        if (++naps == 2) debug_wait_arm(false);
      });
    });
    std::string line =
        "reelscan-D0 reelscan (" + std::to_string(getpid()) + ") waiting to be debugged\n";
    EXPECT_EQ(told, r.waits ? line + line : "");
    debug_wait_arm(false);
  }
}

TEST_F(debug_output, excepted_descriptors_are_ten) {
  for (int fd = 100; fd < 110; fd++) EXPECT_TRUE(excepted_fd_add(fd));
  debug_set_level(1);
  std::string told = stderr_of([] { EXPECT_FALSE(excepted_fd_add(110)); });
  EXPECT_NE(told.find("message = \"Failed to add new Excepted File Descriptor.\"\n"),
            std::string::npos);
  EXPECT_TRUE(excepted_fd_add(105));
  for (int fd = 100; fd < 110; fd++) excepted_fd_remove(fd);
  int kept = dup2(2, 500), closed = dup2(2, 501);
  excepted_fd_add(kept);
  pid_t child = fork();
  if (child == 0) {
    close_unexcepted_fds();
    _exit(fcntl(kept, F_GETFD) >= 0 && fcntl(closed, F_GETFD) < 0 ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  excepted_fd_remove(kept);
  close(kept);
  close(closed);
}

TEST_F(debug_output, tee_copies_both_streams) {
  const std::string path = directory_.file("tee");
  debug_set_level(3);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(setup_stdfds_tee(path.c_str()), 0);
  EXPECT_EQ(setup_stdfds_tee(path.c_str()), -1);
  std::printf("to out\n");
  std::fprintf(stderr, "to err\n");
  terminate_stdfds_tee();
  terminate_stdfds_tee();
  std::printf("after\n");
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "reelscan-D3 tee_output_thread: hit EOF, exiting the thread\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "to out\nto err\nafter\n");
  EXPECT_EQ(file_text(path), "to out\nto err\n");
}

TEST_F(debug_output, tee_that_cannot_write_leaves_the_streams_alone) {
  const std::string path = directory_.file("no/tee");
  debug_set_level(2);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(setup_stdfds_tee(path.c_str()), -1);
  std::fprintf(stderr, "direct\n");
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "direct\n");
  EXPECT_EQ(out, "reelscan-D2 tee_output_thread: Failed to open the tee file '" + path +
                     "', error: 'No such file or directory'\n"
                     "reelscan-D2 setup_stdfds_tee_ovr: pipe output thread has exited "
                     "prematurely\n");
}

TEST_F(debug_output, installation_directories_move) {
  EXPECT_EQ(install_path(INSTALL_TOKENS, "f"), "/opt/qvr/tokens/f");
  EXPECT_EQ(install_fault_table(), "/qvr/debug/rdlr");
  EXPECT_FALSE(install_marker("nothing-of-this-name"));
  setenv("QVR_DIR_PATH", "/x/", 1);
  EXPECT_EQ(install_dir(INSTALL_ROOT_DEBUG), "/x/debug");
  EXPECT_EQ(install_dir(INSTALL_DEBUG), "/qvr/debug");
  setenv("QVR_DEBUG_DIR", "/y", 1);
  EXPECT_EQ(install_dir(INSTALL_DEBUG), "/y");
  setenv("QVR_DIR_PATH", "", 1);
  EXPECT_EQ(install_dir(INSTALL_SSL), "/opt/qvr/ssl");
}

}  // namespace
}  // namespace qvr
