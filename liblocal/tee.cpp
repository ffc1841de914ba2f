#include "tee.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>

#include "atexit_list.h"
#include "debug_words.h"
#include "immortal.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr int STEP_MS = 10, START_MS = 60000, END_MS = 10000;

struct tee_t {
  std::mutex mutex;  // guards all but the two flags, which the thread sets
  bool running = false;
  std::string path;
  int earlier_out = -1, earlier_err = -1;
  int pipe_read = -1, pipe_write = -1;
  pthread_t thread{};
  std::atomic<bool> begun{false};
  std::atomic<bool> ended{false};
};

tee_t &tee() {
  static immortal<tee_t> the_tee;
  return *the_tee;
}

void close_fd(int &fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

void write_all(int fd, const char *data, std::size_t size) {
  while (size > 0) {
    ssize_t written = write(fd, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

// Copies the pipe to the earlier standard output, and to `file` unless that is -1, up to its end.
void copy_pipe(const tee_t &mine, int file) {
  std::array<char, 8192> block;
  for (;;) {
    ssize_t size = read(mine.pipe_read, block.data(), block.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return;
    write_all(mine.earlier_out, block.data(), static_cast<std::size_t>(size));
    if (file >= 0) write_all(file, block.data(), static_cast<std::size_t>(size));
  }
}

void close_tee_file(void *file) {
  close(*static_cast<int *>(file));
}

void *tee_output_thread(void *) {
  tee_t &mine = tee();
  constexpr mode_t mode = 0666;
  int file = open(mine.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, mode);
  if (file < 0) {
    KS_DEBUG(2, "tee_output_thread: Failed to open the tee file '%s', error: '%s'\n",
             mine.path.c_str(), ks_strerror(errno));
    mine.ended = true;
    return nullptr;
  }
  pthread_cleanup_push(close_tee_file, &file);
  mine.begun = true;
  copy_pipe(mine, file);
  KS_DEBUG(3, "tee_output_thread: hit EOF, exiting the thread\n");
  pthread_cleanup_pop(1);
  mine.ended = true;
  return nullptr;
}

// True once one of the flags is set.
bool wait_for(const std::atomic<bool> &one, const std::atomic<bool> &other, int limit_ms) {
  for (int waited = 0; !one && !other; waited += STEP_MS) {
    if (waited >= limit_ms) return false;
    ks_sleep_ms(STEP_MS);
  }
  return true;
}

void restore_standard_file_descriptors(tee_t &mine) {
  std::fflush(stdout);
  std::fflush(stderr);
  if (mine.earlier_out >= 0) dup2(mine.earlier_out, STDOUT_FILENO);
  if (mine.earlier_err >= 0) dup2(mine.earlier_err, STDERR_FILENO);
}

void close_pipe_write(tee_t &mine) {
  close_fd(mine.pipe_write);
}

void release(tee_t &mine) {
  close_pipe_write(mine);
  close_fd(mine.pipe_read);
  close_fd(mine.earlier_out);
  close_fd(mine.earlier_err);
  mine.running = false;
}

bool redirect(tee_t &mine) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  mine.pipe_read = ends[0];
  mine.pipe_write = ends[1];
  std::fflush(stdout);
  std::fflush(stderr);
  constexpr int first_free = 3;
  mine.earlier_out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, first_free);
  mine.earlier_err = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, first_free);
  if (mine.earlier_out < 0 || mine.earlier_err < 0) return false;
  if (dup2(mine.pipe_write, STDERR_FILENO) < 0 || dup2(mine.pipe_write, STDOUT_FILENO) < 0) {
    return false;
  }
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  return true;
}

// Stops a thread that did not come up, with what was printed in the meantime.
void give_up(tee_t &mine, bool thread_runs) {
  restore_standard_file_descriptors(mine);
  close_pipe_write(mine);
  if (thread_runs) {
    if (!mine.ended) pthread_cancel(mine.thread);
    pthread_join(mine.thread, nullptr);
  }
  if (mine.pipe_read >= 0 && mine.earlier_out >= 0) {
    // A child may hold the write end: what is there is copied, nothing is waited for.
    fcntl(mine.pipe_read, F_SETFL, O_NONBLOCK);
    copy_pipe(mine, -1);
  }
  release(mine);
}

int start_thread(tee_t &mine) {
  if (pthread_create(&mine.thread, nullptr, tee_output_thread, nullptr) != 0) {
    KS_DEBUG(2,
             "setup_stdfds_tee_ovr: pipe output thread will be terminated due to thread failure at "
             "startup\n");
    give_up(mine, false);
    return -1;
  }
  bool told = wait_for(mine.begun, mine.ended, START_MS);
  if (mine.begun) return 0;
  if (told) {
    KS_DEBUG(2, "setup_stdfds_tee_ovr: pipe output thread has exited prematurely\n");
  } else {
    KS_DEBUG(2,
             "setup_stdfds_tee_ovr: pipe output thread will be terminated due to thread timeout\n");
  }
  give_up(mine, true);
  return -1;
}

}  // namespace

int setup_stdfds_tee(const char *path) {
  tee_t &mine = tee();
  std::lock_guard lock(mine.mutex);
  if (mine.running || path == nullptr) return -1;
  mine.path = path;
  mine.begun = false;
  mine.ended = false;
  if (!redirect(mine)) {
    give_up(mine, false);
    return -1;
  }
  if (start_thread(mine) != 0) return -1;
  mine.running = true;
  static const int registered = ks_atexit(terminate_stdfds_tee);
  (void)registered;
  return 0;
}

void terminate_stdfds_tee() {
  tee_t &mine = tee();
  std::lock_guard lock(mine.mutex);
  if (!mine.running) return;
  restore_standard_file_descriptors(mine);
  close_pipe_write(mine);
  if (!wait_for(mine.ended, mine.ended, END_MS)) pthread_cancel(mine.thread);
  pthread_join(mine.thread, nullptr);
  release(mine);
}

}  // namespace qvr
