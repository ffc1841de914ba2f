// The user's token file and its lock.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "fake_resolver.h"
#include "kstr_token.h"
#include "temp_dir.h"

namespace qvr {
namespace {

namespace fs = std::filesystem;

class token_file : public testing::Test {
 protected:
  fs::path file() const { return root_ / ".qvrlogin.ann"; }
  fs::path lock() const { return root_ / ".qvrlogin.ann.lck"; }
  temp_dir directory_;
  fs::path root_ = directory_.path();
};

TEST_F(token_file, reading) {
  const fs::path other = root_ / "other";
  auto holds = [](const fs::path &path, std::size_t size) {
    return [=] { std::ofstream(path) << std::string(size, 't'); };
  };
  struct row {
    int line;
    std::function<void()> prepare;
    bool good;
    std::size_t size;
    std::int32_t message;  // 0: none
  };
  const row rows[] = {
      {__LINE__, [] {}, true, 0, 0},
      {__LINE__, holds(file(), 5), true, 5, 0},
      {__LINE__, holds(file(), 0), true, 0, 0},
      {__LINE__, holds(file(), 65536), true, 65536, 0},
      {__LINE__, holds(file(), 65537), false, 0, 122974},
      {__LINE__, [&] { fs::create_symlink(other, file()); }, false, 0, 122974},
      {__LINE__, [&] { ASSERT_EQ(mkfifo(file().c_str(), 0600), 0); }, false, 0, 122974},
      {__LINE__, [&] { fs::create_directory(file()); }, false, 0, 122974},
      {__LINE__, [&] { holds(file(), 5)(), fs::create_symlink(other, lock()); }, false, 0, 136611},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    fs::remove_all(root_);
    fs::create_directories(root_);
    r.prepare();
    test::caught_messages caught;
    std::string token = "stale";
    EXPECT_EQ(kstr_read_token(root_, "ann", token), r.good);
    EXPECT_EQ(token.size(), r.size);
    auto messages = caught.taken();
    ASSERT_EQ(messages.size(), r.message != 0 ? 1u : 0u);
    EXPECT_TRUE(messages.empty() || messages[0].message.id == r.message);
    EXPECT_FALSE(fs::exists(other)) << "no link is followed";
  }
}

TEST_F(token_file, a_lock_that_is_held) {
  std::ofstream(file()) << "token";
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = fork();
  if (holder == 0) {
    int fd = open(lock().c_str(), O_RDWR | O_CREAT, 0600);
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    bool locked = fcntl(fd, F_SETLK, &whole) == 0;
    bool told = write(ready[1], "x", 1) == 1;
    usleep(locked && told ? 3000000 : 0);
    _exit(0);
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  test::caught_messages caught;
  std::string token;
  EXPECT_FALSE(kstr_read_token(root_, "ann", token));
  auto messages = caught.taken();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].message.id, 136612);
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_TRUE(kstr_read_token(root_, "ann", token));
  EXPECT_EQ(token, "token");
  close(ready[0]);
  close(ready[1]);
}

TEST(token_daemons, by_flag_and_by_name) {
  EXPECT_FALSE(kstr_is_daemon(false));
  EXPECT_TRUE(kstr_is_daemon(true));
  for (const char *master : {"qvrd", "aqvrd", "qvrsnmd", "reelscan"}) {
    setenv("QVR_MAST", master, 1);
    EXPECT_EQ(kstr_is_daemon(false), std::string_view(master) != "reelscan") << master;
  }
  unsetenv("QVR_MAST");
}

}  // namespace
}  // namespace qvr
