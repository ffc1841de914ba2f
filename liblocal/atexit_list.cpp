#include "atexit_list.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "immortal.h"
#include "ks_errors.h"
#include "ks_list.h"
#include "ks_runtime_parts.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

namespace {

struct runtime_t {
  std::once_flag once;
  std::mutex lock;  // guards the pointers below, which the end takes away
  KSList *exit_list = nullptr;
  ks_runtime_mutexes_t mutexes;
};

runtime_t &runtime() {
  static immortal<runtime_t> the_runtime;
  return *the_runtime;
}

std::atomic<bool> opted_out{false};
std::atomic<bool> ending{false};

// What the start could not make. The message layer needs the names, and so the runtime: it is
// called once the start is over.
struct failed_part_t {
  const char *format = nullptr;
  int error = 0;
};
thread_local failed_part_t failed_part;

KSMutex *make_name_mutex(const char *format) {
  KSMutex *made = ks_mutex_create();
  if (made == nullptr) failed_part = {format, errno};
  return made;
}

void start() {
  runtime_t &all = runtime();
  std::lock_guard hold(all.lock);
  all.exit_list = ks_list_create({}, 0);
  if (all.exit_list == nullptr) {
    failed_part = {"Failed to create internal atexit list: %s.\n", errno};
  }
  all.mutexes.program_name = make_name_mutex("Failed to create program name mutex: %s.\n");
  all.mutexes.server_name = make_name_mutex("Failed to create qvr server name mutex: %s.\n");
  if (!opted_out) std::atexit(ks_runtime_end);
}

}  // namespace

void ks_runtime_start() {
  std::call_once(runtime().once, start);
  if (failed_part.format == nullptr) return;
  failed_part_t failed = std::exchange(failed_part, {});
  msg_print(0, failed.error + 15000, MSG_STDERR, failed.format,
            {{MSG_ARG_ERRTEXT, ks_strerror(failed.error)}});
  std::raise(SIGTERM);
}

void ks_runtime_opt_out() {
  opted_out = true;
}

bool ks_process_ending() {
  return ending;
}

ks_runtime_mutexes_t ks_runtime_mutexes() {
  ks_runtime_start();
  std::lock_guard hold(runtime().lock);
  return runtime().mutexes;
}

int ks_atexit(ks_atexit_fn function) {
  if (function == nullptr) return ks_null_argument();
  ks_runtime_start();
  std::lock_guard hold(runtime().lock);
  if (runtime().exit_list == nullptr) return ks_set_error(ESRCH, KS_ERROR_ERRNO);
  return ks_list_append(runtime().exit_list, reinterpret_cast<void *>(function));
}

void ks_runtime_end() {
  ks_runtime_start();
  ending = true;
  runtime_t &all = runtime();
  while (true) {
    void *function = nullptr;
    {
      std::lock_guard hold(all.lock);
      if (all.exit_list == nullptr) return;
      if (ks_list_remove_at(all.exit_list, 1, &function) != KS_OK) break;
    }
    // Called without the lock: a function may register another, which then runs last.
    reinterpret_cast<ks_atexit_fn>(function)();
  }
  std::lock_guard hold(all.lock);
  ks_list_ptr list(std::exchange(all.exit_list, nullptr));
  ks_mutex_ptr program_name(std::exchange(all.mutexes.program_name, nullptr));
  ks_mutex_ptr server_name(std::exchange(all.mutexes.server_name, nullptr));
}

}  // namespace qvr
