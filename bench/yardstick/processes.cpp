#include "processes.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

extern char **environ;

namespace qvr::bench {

namespace {

double seconds(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

std::vector<char *> pointers(const std::vector<std::string> &argv) {
  std::vector<char *> list;
  for (const std::string &word : argv) list.push_back(const_cast<char *>(word.c_str()));
  list.push_back(nullptr);
  return list;
}

// Starts a program whose descriptor `to` is `fd`.
pid_t start(const std::vector<std::string> &argv, int fd, int to) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fd, to);
  pid_t pid = -1;
  int trouble =
      posix_spawnp(&pid, argv[0].c_str(), &actions, nullptr, pointers(argv).data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (trouble != 0) give_up("cannot run " + argv[0]);
  return pid;
}

std::string read_to_end(int fd) {
  std::string text;
  char piece[4096];
  for (ssize_t got; (got = read(fd, piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<std::size_t>(got));
  return text;
}

}  // namespace

void give_up(const std::string &why) {
  std::fprintf(stderr, "yardstick: %s\n", why.c_str());
  std::exit(2);
}

std::string beside(const std::string &name) {
  char path[4096] = "";
  ssize_t size = readlink("/proc/self/exe", path, sizeof path - 1);
  std::string self(path, size < 0 ? 0 : static_cast<std::size_t>(size));
  return self.substr(0, self.rfind('/') + 1) + name;
}

run_cost_t run(const std::vector<std::string> &argv, const std::string &out) {
  int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) give_up("cannot write " + out);
  auto begun = std::chrono::steady_clock::now();
  pid_t pid = start(argv, fd, STDOUT_FILENO);
  rusage used{};
  int status = 0;
  if (wait4(pid, &status, 0, &used) != pid) give_up("lost " + argv[0]);
  std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begun;
  close(fd);
  run_cost_t cost;
  cost.wall = wall.count();
  cost.cpu = seconds(used.ru_utime) + seconds(used.ru_stime);
  cost.peak = static_cast<double>(used.ru_maxrss) * 1024;
  cost.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  return cost;
}

std::string output_of(const std::vector<std::string> &argv) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) give_up("no pipe");
  pid_t pid = start(argv, ends[1], STDOUT_FILENO);
  close(ends[1]);
  std::string text = read_to_end(ends[0]);
  close(ends[0]);
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || status != 0) give_up("failed: " + argv[0]);
  return text;
}

lab_t::lab_t(std::vector<std::string> options) {
  constexpr int READY = 9;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) give_up("no pipe");
  options.insert(options.begin(), beside("qvrlabd"));
  options.insert(options.end(), {"--ready-fd", std::to_string(READY)});
  pid_ = start(options, ends[1], READY);
  close(ends[1]);
  std::string line = read_to_end(ends[0]);
  close(ends[0]);
  if (!line.starts_with("ready ")) give_up("the lab did not start");
}

lab_t::~lab_t() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

}  // namespace qvr::bench
