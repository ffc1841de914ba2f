#include "excepted_fds.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <mutex>

#include "debug_words.h"
#include "immortal.h"

namespace qvr {

namespace {

struct excepted_list_t {
  std::mutex mutex;  // guards what follows
  std::array<int, 10> fds{};
  std::size_t count = 0;

  int *begin() { return fds.data(); }
  int *end() { return fds.data() + count; }
};

excepted_list_t &excepted_list() {
  static immortal<excepted_list_t> list;
  return *list;
}

// False when there is no room.
bool add_to_list(int fd) {
  excepted_list_t &list = excepted_list();
  std::lock_guard lock(list.mutex);
  if (std::find(list.begin(), list.end(), fd) != list.end()) return true;
  if (list.count == list.fds.size()) return false;
  *list.end() = fd;
  list.count++;
  return true;
}

}  // namespace

bool excepted_fd_add(int fd) {
  bool added = add_to_list(fd);
  if (!added) KS_UNEXPECTED("Failed to add new Excepted File Descriptor.");
  return added;
}

void excepted_fd_remove(int fd) {
  excepted_list_t &list = excepted_list();
  std::lock_guard lock(list.mutex);
  int *at = std::find(list.begin(), list.end(), fd);
  if (at == list.end()) return;
  std::copy(at + 1, list.end(), at);
  list.count--;
}

bool excepted_fd_has(int fd) {
  excepted_list_t &list = excepted_list();
  std::lock_guard lock(list.mutex);
  return std::find(list.begin(), list.end(), fd) != list.end();
}

void close_unexcepted_fds() {
  // No lock: the mutex may be held by a thread that the child does not have.
  excepted_list_t &list = excepted_list();
  std::array<int, 10> kept = list.fds;
  int *end = kept.data() + list.count;
  std::sort(kept.data(), end);
  unsigned first = STDERR_FILENO + 1;
  for (int *fd = kept.data(); fd != end; fd++) {
    if (*fd < 0 || static_cast<unsigned>(*fd) < first) continue;
    if (static_cast<unsigned>(*fd) > first) {
      close_range(first, static_cast<unsigned>(*fd) - 1, 0);
    }
    first = static_cast<unsigned>(*fd) + 1;
  }
  close_range(first, UINT_MAX, 0);
}

}  // namespace qvr
