#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "atexit_list.h"
#include "err_class.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "msg_log.h"
#include "msg_process.h"
#include "progname.h"

namespace qvr {
namespace {

struct captured {
  std::string out, err;
};

template <class F>
captured capture(F &&body) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  body();
  std::fflush(stdout);
  captured got;
  got.out = testing::internal::GetCapturedStdout();
  got.err = testing::internal::GetCapturedStderr();
  return got;
}

// Puts all outlets back as they were.
class msg_output : public testing::Test {
 protected:
  void SetUp() override { ks_set_progname("/usr/bin/reelscan.bin"); }
  void TearDown() override {
    msg_outlets_t &outlets = msg_outlets();
    outlets.hook = nullptr;
    outlets.event = nullptr;
    outlets.handler = nullptr;
    for (auto *log : {&outlets.raw_log, &outlets.rendered_log, &outlets.further_log}) {
      std::FILE *stream = log->exchange(nullptr);
      if (stream != nullptr) std::fclose(stream);
    }
    outlets.log_mode = 0;
    outlets.service = false;
    outlets.force_id = 0;
  }
  static std::string written(const std::atomic<std::FILE *> &log) {
    std::FILE *stream = log;
    std::rewind(stream);
    char text[20000];
    return std::string(text, std::fread(text, 1, sizeof text, stream));
  }
};

TEST_F(msg_output, console_forms_of_print_and_deliver) {
  struct row {
    int line;
    std::int32_t id;
    std::uint32_t flags;
    bool forced;
    const char *out, *err;      // of msg_print of "text %d\n" with 7
    const char *d_out, *d_err;  // of msg_deliver of "text %d" with 7
  };
  const row rows[] = {
      {__LINE__, 900, 1, false, "text 7\n", "", "text 7\n", ""},
      {__LINE__, 900, 2, false, "", "900:reelscan: text 7\n", "", "900:reelscan: text 7\n"},
      {__LINE__, 900, 130, false, "", "text 7\n", "", "text 7\n"},
      {__LINE__, 900, 3, true, "900:reelscan: text 7\n", "900:reelscan: text 7\n",
       "900:reelscan: text 7\n", "900:reelscan: text 7\n"},
      {__LINE__, 900, 131, true, "900:reelscan: text 7\n", "900:reelscan: text 7\n",
       "900:reelscan: text 7\n", "900:reelscan: text 7\n"},
      {__LINE__, 0, 3, true, "text 7\n", "text 7\n", "text 7", "text 7"},
      {__LINE__, 0, 2, false, "", "text 7\n", "", "text 7"},
      // No raw log is open, so that 256 changes nothing.
      {__LINE__, 900, 256 + 2, false, "", "900:reelscan: text 7\n", "", "900:reelscan: text 7\n"},
      // The logging path has no blank behind the second colon and adds no newline.
      {__LINE__, 900, 16 + 3, false, "text 7\n", "900:reelscan:text 7\n", "text 7",
       "900:reelscan:text 7"},
      {__LINE__, 900, 8 + 128 + 2, false, "", "text 7\n", "", "text 7"},
      {__LINE__, 0, 64 + 2, false, "", "text 7\n", "", "text 7"}};
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    msg_outlets().force_id = r.forced;
    captured got = capture([&] { msg_print(r.id, 3, r.flags, "text %d\n", {{1, "7"}}); });
    EXPECT_EQ(got.out, r.out);
    EXPECT_EQ(got.err, r.err);
    got = capture([&] { msg_deliver(err_create(r.id, 3000, "text %d", {{1, "7"}}), r.flags); });
    EXPECT_EQ(got.out, r.d_out);
    EXPECT_EQ(got.err, r.d_err);
  }
}

TEST_F(msg_output, no_format_and_no_arguments) {
  captured got = capture([] {
    msg_print(1, 3, 3, nullptr);
    err_print(nullptr);
    msg_print(0, 3, 2, "100%%");
    err_print(err_create(0, 3, "|100%%"));
  });
  EXPECT_EQ(got.out + got.err, "100%|100%%");
  EXPECT_EQ(err_create(1, 3, nullptr), nullptr);
}

// Its thread_local objects are gone when the main thread runs the exit list.
TEST_F(msg_output, functions_of_the_exit_list_still_print) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto print = [] { msg_print(0, 3, 2, "gr\xc3\xbcn: %s\n", {{0, ks_strerror(ENOENT)}}); };
  EXPECT_EXIT(
      {
        print();
        ks_atexit(print);
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^(gr\xfcn: No such file or directory\n){2}$");
}

TEST_F(msg_output, standard_output_comes_first_when_both_are_one_file) {
  std::FILE *file = std::tmpfile();
  int out = dup(1), err = dup(2);
  std::fflush(stdout);
  dup2(fileno(file), 1);
  dup2(fileno(file), 2);
  std::setvbuf(stdout, nullptr, _IOFBF, 4096);
  msg_print(0, 0, 1, "first ");
  msg_print(0, 0, 2, "second");
  std::fflush(stdout);
  dup2(out, 1);
  dup2(err, 2);
  close(out);
  close(err);
  std::rewind(file);
  char text[64];
  EXPECT_EQ(std::string(text, std::fread(text, 1, sizeof text, file)), "first second");
  std::fclose(file);
}

TEST_F(msg_output, raw_line) {
  errobj_t error =
      *err_create(900, 23007, "one\ntwo %s %s %s\n",
                  {{MSG_ARG_HOST, "a\nb"}, {MSG_ARG_TIMETEXT, "c\nd"}, {MSG_ARG_ENCODED, "e\nf"}});
  error.time = 1700000000;
  error.thread = 11;
  error.process = 12;
  error.tag = 13;
  error.host = "mars";
  error.program = "my prog\t";
  EXPECT_EQ(msg_raw_line(error),
            "900 1700000000 3 2 7 11 12 13 mars myprog RPC error 17 one\\ntwo %s %s %s 3"
            " 12 3 a\nb 35 2 cd 49 3 e f");
  error.message.args = {{MSG_ARG_TEXT, std::string(9000, 'x') + "\n"}};
  std::string line = msg_raw_line(error);
  EXPECT_TRUE(line.ends_with(" 1 0 8191 " + std::string(8191, 'x')));
  error.message.args = {{MSG_ARG_HOST, "kept"}, {MSG_ARG_HOST, std::string(18432, 'x')}};
  EXPECT_TRUE(msg_raw_line(error).ends_with(" 2 12 4 kept"));
}

TEST_F(msg_output, log_modes) {
  struct row {
    int line;
    std::uint32_t flags, mode;
    bool service;
    bool raw, rendered, further, console;
  };
  const row rows[] = {{__LINE__, 8 | 2, 0, false, true, true, false, true},
                      {__LINE__, 64, 0, false, true, true, false, false},
                      {__LINE__, 16 | 2, 0, false, false, true, false, true},
                      {__LINE__, 16 | 2, 16, false, false, false, false, true},
                      {__LINE__, 8 | 2, 16, false, true, true, false, true},
                      {__LINE__, 8 | 2, 32, false, false, true, false, true},
                      {__LINE__, 8, 32, false, true, true, false, false},
                      {__LINE__, 64, 128, false, false, false, true, false},
                      {__LINE__, 64 | 2, 128, false, true, true, true, true},
                      {__LINE__, 2, 0, true, false, true, false, true},
                      {__LINE__, 2, 16, true, false, true, false, false},
                      {__LINE__, 256 | 3, 0, false, true, true, false, false}};
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    msg_outlets_t &outlets = msg_outlets();
    outlets.raw_log = std::tmpfile();
    outlets.rendered_log = std::tmpfile();
    outlets.further_log = std::tmpfile();
    outlets.log_mode = r.mode;
    outlets.service = r.service;
    captured got = capture([&] { msg_print(900, 3, r.flags, "seen %s", {{12, "mars"}}); });
    EXPECT_EQ(!written(outlets.raw_log).empty(), r.raw);
    EXPECT_EQ(!written(outlets.rendered_log).empty(), r.rendered);
    EXPECT_EQ(!written(outlets.further_log).empty(), r.further);
    EXPECT_EQ(!(got.out + got.err).empty(), r.console);
    bool raw_line = got.err.starts_with("900 ");
    EXPECT_EQ(raw_line, r.service && r.console);
    TearDown();
  }
}

TEST_F(msg_output, rendered_lines) {
  errobj_t error = *err_create(900, 3000, "x");
  error.program = "reelscan";
  error.thread = 5;
  error.process = 6;
  std::string plain = msg_rendered_line(error, "text", false);
  EXPECT_TRUE(plain.starts_with("900 ")) << plain;
  EXPECT_TRUE(plain.ends_with("  reelscan QVR error text\n")) << plain;
  std::string full = msg_rendered_line(error, "text", true);
  EXPECT_TRUE(full.ends_with("  5 6 0 reelscan QVR error text\n")) << full;
  EXPECT_TRUE(msg_further_line(error, "text", true).ends_with("  5 6 0 text\n"));
  // A reader of the raw log counts bytes; one of the rendered log has the locale's code set.
  msg_outlets().raw_log = std::tmpfile();
  msg_outlets().rendered_log = std::tmpfile();
  msg_print(900, 3, 8, "gr\xc3\xbcn");
  EXPECT_TRUE(written(msg_outlets().raw_log).ends_with(" 5 gr\xc3\xbcn 0\n"));
  EXPECT_TRUE(written(msg_outlets().rendered_log).ends_with(" QVR error gr\xfcn\n"));
}

std::string seen;

TEST_F(msg_output, hooks_see_messages) {
  msg_outlets().hook = [](std::int32_t id, std::int32_t code, std::uint32_t flags,
                          const char *text) {
    seen += std::to_string(id) + "," + std::to_string(code) + "," + std::to_string(flags) + text;
  };
  msg_outlets().event = [](const errobj_t *error, std::uint32_t) { seen += "|" + error->text; };
  seen.clear();
  captured got = capture([] {
    msg_print(900, 3, 2, " a ");
    msg_print(901, 3, 2 | 32, " b ");
    msg_print(902, 3, 2 | 512, " c ");
  });
  EXPECT_EQ(seen, "900,3000,2 a 901,3000,34 b | b 902,3000,514 c | c ");
  EXPECT_EQ(got.err, "900:reelscan:  a 901:reelscan:  b \n902:reelscan:  c \n");
  msg_outlets().hook = nullptr;
  msg_outlets().handler = [](const errobj_t *error, std::uint32_t) { seen = error->text; };
  got = capture([] { err_print(err_create(1, 3, "handled")); });
  EXPECT_EQ(seen + got.err, "handled");
}

}  // namespace
}  // namespace qvr
