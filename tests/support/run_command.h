// Running programs in tests: once to their end, or in the background until told to stop.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "netns.h"

extern char **environ;

namespace qvr::test {

// A program of this build: it lies beside the test that runs.
inline std::string built_program(const std::string &name) {
  char path[4096];
  ssize_t size = readlink("/proc/self/exe", path, sizeof path);
  std::string self(path, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return self.substr(0, self.rfind('/') + 1) + name;
}

struct command_result {
  int status = -1;  // exit status; 128 + signal when a signal ended it; -1 when it did not start
  bool timed_out = false;
  std::string out;
  std::string err;
};

struct command_options {
  // "NAME=VALUE" sets, "NAME" alone removes.
  std::vector<std::string> env = {"LC_ALL=C", "TZ=UTC"};
  std::string input;
  std::chrono::milliseconds timeout = std::chrono::seconds(60);
  const private_host *host = nullptr;  // runs there when given
  std::string directory;               // working directory when not empty
  bool err_to_out = false;             // both streams in `out`, in their order
};

// A program in the background. Destruction kills it. One thread at a time.
class background_command {
 public:
  explicit background_command(const std::vector<std::string> &argv,
                              const command_options &options = {})
      : input_(options.input) {
    start(argv, options);
  }
  ~background_command() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      reap();
    }
    for (int fd : {in_, out_, err_}) {
      if (fd >= 0) close(fd);
    }
  }
  background_command(const background_command &) = delete;
  background_command &operator=(const background_command &) = delete;

  pid_t pid() const { return pid_; }
  // What has come so far.
  const command_result &result() const { return result_; }

  // Waits until its standard output holds `text`; false when it ended or time ran out before.
  bool wait_for(std::string_view text,
                std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    auto end = std::chrono::steady_clock::now() + timeout;
    while (result_.out.find(text) == std::string::npos) {
      if (!pump(end)) return result_.out.find(text) != std::string::npos;
    }
    return true;
  }

  // Reads to the end of both streams and reaps. Past the time-out the program is killed.
  command_result finish(std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
    auto end = std::chrono::steady_clock::now() + timeout;
    while (pump(end)) {
    }
    if (out_ >= 0 || err_ >= 0) {
      result_.timed_out = true;
      kill(pid_, SIGKILL);
    }
    reap();
    return result_;
  }

  // Sends the signal, then as finish().
  command_result stop(int signal = SIGTERM,
                      std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    if (pid_ > 0) kill(pid_, signal);
    return finish(timeout);
  }

 private:
  using deadline = std::chrono::steady_clock::time_point;

  // Of several changes of one variable the last holds.
  static std::vector<std::string> environment(const std::vector<std::string> &changes) {
    std::vector<std::string> env;
    for (char **at = environ; *at != nullptr; at++) env.emplace_back(*at);
    for (const std::string &change : changes) {
      const std::string name = change.substr(0, change.find('=')) + "=";
      std::erase_if(env, [&](const std::string &entry) { return entry.starts_with(name); });
      if (change.size() >= name.size()) env.push_back(change);
    }
    return env;
  }

  static std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> list;
    for (std::string &text : texts) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
  }

  void start(std::vector<std::string> argv, const command_options &options) {
    std::vector<std::string> env = environment(options.env);
    std::vector<char *> args = pointers(argv), envp = pointers(env);
    int in[2], out[2], err[2];
    if (argv.empty() || pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 ||
        pipe2(err, O_CLOEXEC) != 0)
      return;
    pid_ = fork();
    if (pid_ == 0) {
      // Only calls that a child of a threaded program may make.
      dup2(in[0], 0);
      dup2(out[1], 1);
      dup2(options.err_to_out ? out[1] : err[1], 2);
      if (options.host != nullptr && !options.host->enter()) _exit(126);
      if (!options.directory.empty() && chdir(options.directory.c_str()) != 0) _exit(126);
      signal(SIGPIPE, SIG_DFL);
      execvpe(args[0], args.data(), envp.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    in_ = in[1], out_ = out[0], err_ = err[0];
    fcntl(in_, F_SETFL, O_NONBLOCK);
    if (input_.empty()) shut(in_);
  }

  static void shut(int &fd) {
    close(fd);
    fd = -1;
  }

  // Moves what is ready; false when both streams are at their end or the time is over.
  bool pump(deadline end) {
    if (out_ < 0 && err_ < 0) return false;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd fds[3] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}, {in_, POLLOUT, 0}};
    if (poll(fds, 3, static_cast<int>(std::min<long>(left.count(), 1000))) < 0)
      return errno == EINTR;
    if (fds[0].revents != 0) take(out_, result_.out);
    if (fds[1].revents != 0) take(err_, result_.err);
    if (fds[2].revents != 0) give();
    return out_ >= 0 || err_ >= 0;
  }

  static void take(int &fd, std::string &to) {
    char buffer[65536];
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got > 0)
      to.append(buffer, static_cast<std::size_t>(got));
    else if (got == 0 || (errno != EINTR && errno != EAGAIN))
      shut(fd);
  }

  void give() {
    sigset_t pipe_signal, old;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &old);
    ssize_t put = write(in_, input_.data(), input_.size());
    timespec none{};
    if (put < 0 && errno == EPIPE) sigtimedwait(&pipe_signal, nullptr, &none);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (put > 0) input_.erase(0, static_cast<std::size_t>(put));
    if (put <= 0 || input_.empty()) shut(in_);
  }

  void reap() {
    if (pid_ <= 0) return;
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  pid_t pid_ = -1;
  int in_ = -1, out_ = -1, err_ = -1;
  std::string input_;
  command_result result_;
};

// Runs a program to its end. Any thread.
inline command_result run_command(const std::vector<std::string> &argv,
                                  const command_options &options = {}) {
  background_command command(argv, options);
  return command.finish(options.timeout);
}

}  // namespace qvr::test
