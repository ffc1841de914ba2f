#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "atexit_list.h"
#include "ks_clock.h"
#include "ks_errors.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"
#include "progname.h"
#include "temp_dir.h"

namespace qvr {
namespace {

// Runs in a child, whose process has set no name and registered nothing yet. What it writes to
// standard output comes back.
std::string output_of_child(void (*body)()) {
  int out[2];
  if (pipe(out) != 0) return "no pipe";
  pid_t child = fork();
  if (child == 0) {
    dup2(out[1], 1);
    close(out[0]);
    close(out[1]);
    body();
    std::exit(0);
  }
  close(out[1]);
  std::string text;
  char some[256];
  for (ssize_t got; (got = read(out[0], some, sizeof some)) > 0;) {
    text.append(some, static_cast<std::size_t>(got));
  }
  close(out[0]);
  waitpid(child, nullptr, 0);
  return text;
}

void say(const char *text) {
  (void)!write(1, text, std::strlen(text));
}

TEST(progname, last_component_up_to_its_last_dot) {
  struct row_t {
    int line;
    const char *path, *name;
  } rows[] = {
      {__LINE__, "/usr/sbin/reelscan", "reelscan"},
      {__LINE__, "reelscan.exe", "reelscan"},
      {__LINE__, "./a.b.c", "a.b"},
      {__LINE__, "/opt/v1.2/bin/tool", "tool"},
  };
  char name[64];
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    ks_set_progname(row.path);
    EXPECT_STREQ(row.name, ks_get_progname(name, sizeof name));
  }
  ks_set_progname("reelscan");
  EXPECT_STREQ("reel", ks_get_progname(name, 5));
}

TEST(progname, names_the_process_before_any_set) {
  // The test program itself may have set a name already: ask a process that has not.
  std::string text = output_of_child([] {
    execl("/proc/self/exe", "test", "--gtest_filter=progname.DISABLED_print_unset",
          "--gtest_also_run_disabled_tests", nullptr);
  });
  EXPECT_NE(std::string::npos, text.find("name=(pid ")) << text;
}

TEST(progname, DISABLED_print_unset) {
  char name[64];
  std::string expected = "(pid " + std::to_string(getpid()) + ")";
  EXPECT_EQ(expected, ks_get_progname(name, sizeof name));
  say(("name=" + std::string(name) + "\n").c_str());
}

TEST(atexit_list, functions_run_in_the_order_of_registration) {
  std::string text = output_of_child([] {
    execl("/proc/self/exe", "test", "--gtest_filter=atexit_list.DISABLED_register",
          "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
  });
  EXPECT_NE(std::string::npos, text.find("one two ending three.")) << text;
}

TEST(atexit_list, DISABLED_register) {
  EXPECT_EQ(KS_OK, ks_atexit([] { say("one "); }));
  EXPECT_EQ(KS_OK, ks_atexit([] {
              say("two ");
              if (ks_process_ending()) say("ending ");
              ks_atexit([] { say("three."); });
            }));
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_atexit(nullptr));
  EXPECT_FALSE(ks_process_ending());
}

TEST(ks_errors, portable_numbers) {
  struct row_t {
    int line;
    int value;
    int portable;
  } rows[] = {
      {__LINE__, ENOENT, 49},    {__LINE__, ENOMEM, 53}, {__LINE__, EBUSY, 12},
      {__LINE__, EEXIST, 22},    {__LINE__, EINVAL, 31}, {__LINE__, ERANGE, 74},
      {__LINE__, EDEADLK, 18},   {__LINE__, ESRCH, 78},  {__LINE__, ETIME, 80},
      {__LINE__, ETIMEDOUT, 81}, {__LINE__, 0, 0},       {__LINE__, 99999, 1},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(row.portable, ks_set_error(row.value, KS_ERROR_ERRNO));
    EXPECT_EQ(row.value, errno);
    EXPECT_EQ(row.portable, ks_last_error());
  }
  // No two failures share a number, and each finds its way back.
  std::set<int> seen;
  for (int error = 1; error < 200; error++) {
    int portable = ks_portable_number(error, KS_ERROR_ERRNO);
    if (portable == KS_UNKNOWN) continue;
    EXPECT_NE(KS_NULL_ARGUMENT, portable);
    EXPECT_TRUE(seen.insert(portable).second) << error;
    EXPECT_EQ(error, ks_errno_of(portable));
  }
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_null_argument());
  EXPECT_EQ(EINVAL, errno);
  // A resolver failure leaves errno alone.
  errno = 7;
  EXPECT_GT(ks_set_error(EAI_NONAME, KS_ERROR_RESOLVER), KS_UNKNOWN);
  EXPECT_EQ(7, errno);
  EXPECT_EQ(KS_ERROR_RESOLVER, ks_last_error_kind());
}

TEST(ks_wrappers, strerror_texts_outlive_199_calls) {
  const char *first = ks_strerror(ENOENT);
  EXPECT_STREQ(std::strerror(ENOENT), first);
  for (int i = 0; i < 199; i++) ks_strerror(EINVAL);
  EXPECT_STREQ(std::strerror(ENOENT), first);
  EXPECT_EQ(first, ks_strerror(EPERM));
}

TEST(ks_wrappers, copies_of_texts) {
  struct row_t {
    int line;
    const char *start, *add;
    std::size_t size;
    const char *result;
    std::size_t tried;
  } rows[] = {
      {__LINE__, "", "abc", 8, "abc", 3},          {__LINE__, "", "abcdefgh", 8, "abcdefg", 8},
      {__LINE__, "ab", "cd", 8, "abcd", 4},        {__LINE__, "abcd", "efgh", 8, "abcdefg", 8},
      {__LINE__, "abcdefg", "h", 8, "abcdefg", 8},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    char buffer[8];
    ks_strlcpy(buffer, row.start, sizeof buffer);
    EXPECT_EQ(row.tried, ks_strlcat(buffer, row.add, row.size));
    EXPECT_STREQ(row.result, buffer);
  }
  char full[4] = {'a', 'b', 'c', 'd'};  // no NUL within the size
  EXPECT_EQ(6u, ks_strlcat(full, "ef", 4));
  EXPECT_EQ(3u, ks_strlcpy(full, "abc", 0));
  char text[100];
  EXPECT_EQ(4u, ks_snprintf(text, sizeof text, "%d%s", 12, "ab"));
  EXPECT_EQ(0u, ks_snprintf(text, 0, "%d", 12));
}

std::int64_t end_of_time() {
  return 0x7fffffff;
}

TEST(ks_wrappers, time_is_never_the_end_of_time) {
  ks_set_clock(end_of_time);
  EXPECT_EQ(0x7ffffffe, ks_time());
  ks_set_clock([]() -> std::int64_t { return 0x80000000; });
  EXPECT_EQ(0x80000000, ks_time());
  ks_set_clock(nullptr);
}

TEST(ks_wrappers, environment) {
  EXPECT_EQ(nullptr, ks_getenv("KS_TEST_UNSET"));
  EXPECT_EQ(KS_OK, ks_putenv("KS_TEST", "gr\xc3\xbc\xc3\x9f"));
  const char *first = ks_getenv("KS_TEST");
  EXPECT_STREQ("gr\xc3\xbc\xc3\x9f", first);
  ks_putenv("KS_TEST", "other");
  EXPECT_STREQ("other", ks_getenv("KS_TEST"));
  ks_putenv("KS_TEST", "gr\xc3\xbc\xc3\x9f");
  EXPECT_EQ(first, ks_getenv("KS_TEST"));
  unsetenv("KS_TEST");
}

TEST(ks_wrappers, byte_order_marks) {
  const std::string mark = "\xef\xbb\xbf";
  temp_dir directory;
  struct row_t {
    int line;
    std::string before;
    int how;
    unsigned flags;
    std::string written;  // by the test
    std::string after;    // the whole file
    std::string read;     // from where open left off
  } rows[] = {
      {__LINE__, "", O_WRONLY | O_TRUNC, KS_OPEN_WRITE_BOM, "x", mark + "x", ""},
      {__LINE__, "old", O_WRONLY | O_TRUNC, KS_OPEN_WRITE_BOM, "x", mark + "x", ""},
      {__LINE__, "old", O_WRONLY | O_APPEND, KS_OPEN_WRITE_BOM, "x", "oldx", ""},
      {__LINE__, "", O_WRONLY, 0, "x", "x", ""},
      {__LINE__, mark + "text", O_RDONLY, KS_OPEN_CHECK_BOM, "", mark + "text", "text"},
      {__LINE__, "text", O_RDONLY, KS_OPEN_CHECK_BOM, "", "text", "text"},
      {__LINE__, "\xef\xbb", O_RDONLY, KS_OPEN_CHECK_BOM, "", "\xef\xbb", "\xef\xbb"},
      {__LINE__, mark + "text", O_RDONLY, 0, "", mark + "text", mark + "text"},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    const std::string path = directory.write("file", row.before);
    int file = ks_open(path.c_str(), row.how, 0600, row.flags);
    ASSERT_GE(file, 0);
    char some[64];
    if (row.how == O_RDONLY) {
      ssize_t got = read(file, some, sizeof some);
      EXPECT_EQ(row.read, std::string(some, static_cast<std::size_t>(got)));
    } else {
      EXPECT_EQ(1, write(file, row.written.data(), 1));
    }
    ks_close(file);
    std::stringstream all;
    all << std::ifstream(path).rdbuf();
    EXPECT_EQ(row.after, all.str());
  }
  struct stat about;
  EXPECT_EQ(-1, ks_stat(directory.file("none").c_str(), &about));
  EXPECT_EQ(KS_ENOENT, ks_last_error());
}

TEST(ks_wrappers, memory_of_no_size) {
  void *memory = ks_malloc(0);
  EXPECT_NE(nullptr, memory);
  ks_free(memory);
  char *zeros = static_cast<char *>(ks_calloc(3, 4));
  EXPECT_EQ(0, std::memcmp(zeros, "\0\0\0\0\0\0\0\0\0\0\0", 12));
  ks_free(zeros);
  char *copy = ks_strdup("text");
  EXPECT_STREQ("text", copy);
  ks_free(copy);
}

}  // namespace
}  // namespace qvr
