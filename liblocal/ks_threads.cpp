#include "ks_threads.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>

#include "debug_words.h"
#include "ks_errors.h"
#include "ks_object.h"
#include "ks_wrappers.h"
#include "msg.h"

namespace qvr {

struct ks_thread_t : ks_object_t {
  ~ks_thread_t() { pthread_attr_destroy(&attributes); }

  pthread_t id = {};
  pthread_attr_t attributes;
  std::mutex lock;  // guards the id, the state and what stands below it
  void *(*start)(void *) = nullptr;
  void *argument = nullptr;
  ks_thread_state state = KS_THREAD_MADE;
  bool cancel_off = false;
  bool joining = false;
  void *exit_value = nullptr;
  std::uint64_t identity = 0;
};

namespace {

thread_local ks_thread_t *self_handle = nullptr;

int failed(int error) {
  return ks_set_error(error, KS_ERROR_ERRNO);
}

std::uint64_t make_identity() {
  static std::atomic<std::uint32_t> counter{0};
  std::uint32_t number;
  do {
    number = ++counter;
  } while (number == 0);
  return static_cast<std::uint64_t>(static_cast<std::uint32_t>(getpid())) << 32 | number;
}

void end_thread(ks_object_t *object) {
  std::unique_ptr<ks_thread_t> thread(static_cast<ks_thread_t *>(object));
}

// Raises the stack to the least that the house promises. False when that met an error.
bool size_stack(pthread_attr_t &attributes, std::size_t &size) {
  int rc = pthread_attr_getstacksize(&attributes, &size);
  if (rc != 0) {
    msg_print(181493, rc + 12000, MSG_STDERR, "Unable to get thread stack size: %s\n",
              {{MSG_ARG_ERRTEXT, ks_strerror(rc)}});
    size = 0;
    return false;
  }
  KS_DEBUG(9, "Stack size is %u.\n", static_cast<unsigned>(size));
  if (size == 0 || size >= KS_THREAD_STACK) return true;
  rc = pthread_attr_setstacksize(&attributes, KS_THREAD_STACK);
  if (rc != 0) {
    msg_print(181492, rc + 12000, MSG_STDERR, "Unable to set stack size to %u: %s\n",
              {{MSG_ARG_UINT, msg_arg_uint(static_cast<unsigned>(KS_THREAD_STACK))},
               {MSG_ARG_ERRTEXT, ks_strerror(rc)}});
    return false;
  }
  size = KS_THREAD_STACK;
  return true;
}

// What a thread leaves behind, however it ends: a cancellation unwinds through here too.
class thread_end {
 public:
  explicit thread_end(ks_thread_t *thread) : thread_(thread) {}
  ~thread_end() {
    std::unique_lock hold(thread_->lock);
    bool frees_itself = thread_->state == KS_THREAD_DETACHED;
    thread_->state = KS_THREAD_ENDED;
    hold.unlock();
    self_handle = nullptr;
    if (frees_itself) ks_object_drop(thread_);
  }
  thread_end(const thread_end &) = delete;
  thread_end &operator=(const thread_end &) = delete;

 private:
  ks_thread_t *thread_;
};

void *run_thread(void *handle) {
  auto *thread = static_cast<ks_thread_t *>(handle);
  self_handle = thread;
  thread_end end(thread);
  {
    std::lock_guard hold(thread->lock);
    if (thread->state == KS_THREAD_STARTING) thread->state = KS_THREAD_RUNNING;
  }
  void *value = thread->start(thread->argument);
  std::lock_guard hold(thread->lock);
  thread->exit_value = value;
  return value;
}

// Frees the handle of a thread that was not made here when that thread ends.
struct foreign_handle {
  ~foreign_handle() {
    if (thread == nullptr) return;
    self_handle = nullptr;
    ks_object_drop(thread);
  }
  ks_thread_t *thread = nullptr;
};

}  // namespace

ks_thread_t *ks_thread_create(void *(*start)(void *argument), void *argument) {
  if (start == nullptr) {
    ks_null_argument();
    return nullptr;
  }
  std::unique_ptr<ks_thread_t> made(new (std::nothrow) ks_thread_t);
  if (made == nullptr) {
    failed(ENOMEM);
    return nullptr;
  }
  pthread_attr_init(&made->attributes);
  made->start = start;
  made->argument = argument;
  std::size_t size = 0;
  bool sized = size_stack(made->attributes, size);
  pthread_attr_setinheritsched(&made->attributes, PTHREAD_INHERIT_SCHED);
  if (getuid() == 0) {
    int rc = pthread_attr_setscope(&made->attributes, PTHREAD_SCOPE_SYSTEM);
    if (rc != 0) {
      failed(rc);
      return nullptr;
    }
  }
  ks_object_register(made.get(), end_thread);
  made->identity = make_identity();
  auto number = static_cast<unsigned long>(made->identity);
  if (sized) {
    KS_DEBUG(3, "Thread %lu will have a stack size of %u.\n", number, static_cast<unsigned>(size));
  } else {
    KS_DEBUG(3, "Thread %lu had stack resizing errors.\n", number);
  }
  return made.release();
}

int ks_thread_set_stack(ks_thread_t *thread, std::size_t bytes) {
  if (thread == nullptr) return ks_null_argument();
  if (bytes <= KS_THREAD_STACK) return failed(EINVAL);
  std::lock_guard hold(thread->lock);
  int rc = pthread_attr_setstacksize(&thread->attributes, bytes);
  return rc == 0 ? KS_OK : failed(rc);
}

int ks_thread_start(ks_thread_t *thread) {
  if (thread == nullptr) return ks_null_argument();
  if (thread == self_handle) return failed(EDEADLK);
  // Held until the id is stored: the thread itself waits for it before its first step.
  std::lock_guard hold(thread->lock);
  ks_thread_state before = thread->state;
  if (before != KS_THREAD_MADE && before != KS_THREAD_JOINED) return failed(EBUSY);
  thread->state = KS_THREAD_STARTING;
  thread->exit_value = nullptr;
  thread->cancel_off = false;
  int rc = pthread_create(&thread->id, &thread->attributes, run_thread, thread);
  if (rc == 0) return KS_OK;
  thread->state = before;
  return failed(rc);
}

int ks_thread_join(ks_thread_t *thread, void **exit_value) {
  if (exit_value != nullptr) *exit_value = nullptr;
  if (thread == nullptr) return ks_null_argument();
  if (thread == self_handle) return failed(EDEADLK);
  pthread_t id;
  {
    std::lock_guard hold(thread->lock);
    if (thread->state == KS_THREAD_DETACHED || thread->joining) return failed(EINVAL);
    if (thread->state == KS_THREAD_MADE || thread->state == KS_THREAD_JOINED) return failed(ESRCH);
    thread->joining = true;
    id = thread->id;
  }
  int rc = pthread_join(id, nullptr);
  std::lock_guard hold(thread->lock);
  thread->joining = false;
  if (rc != 0) return failed(rc);
  thread->state = KS_THREAD_JOINED;
  if (exit_value != nullptr) *exit_value = thread->exit_value;
  return KS_OK;
}

int ks_thread_detach(ks_thread_t *thread) {
  if (thread == nullptr) return ks_null_argument();
  bool ended;
  {
    std::lock_guard hold(thread->lock);
    if (thread->state == KS_THREAD_DETACHED || thread->joining) return failed(EINVAL);
    if (thread->state == KS_THREAD_MADE || thread->state == KS_THREAD_JOINED) return failed(ESRCH);
    ended = thread->state == KS_THREAD_ENDED;
    int rc = pthread_detach(thread->id);
    if (rc != 0) return failed(rc);
    thread->state = KS_THREAD_DETACHED;
  }
  if (ended) ks_object_drop(thread);
  return KS_OK;
}

int ks_thread_cancel(ks_thread_t *thread) {
  if (thread == nullptr) return ks_null_argument();
  std::lock_guard hold(thread->lock);
  switch (thread->state) {
    case KS_THREAD_STARTING:
    case KS_THREAD_RUNNING:
      thread->state = KS_THREAD_CANCELLING;
      break;
    case KS_THREAD_DETACHED:
    case KS_THREAD_CANCELLING:
      break;
    default:
      return failed(ESRCH);
  }
  int rc = pthread_cancel(thread->id);
  return rc == 0 ? KS_OK : failed(rc);
}

int ks_thread_allow_cancel(bool allow) {
  ks_thread_t *thread = ks_thread_self();
  if (thread == nullptr) return ks_last_error();
  int before;
  int rc = pthread_setcancelstate(allow ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE, &before);
  if (rc != 0) return failed(rc);
  std::lock_guard hold(thread->lock);
  thread->cancel_off = !allow;
  return KS_OK;
}

ks_thread_state ks_thread_get_state(ks_thread_t *thread) {
  std::lock_guard hold(thread->lock);
  return thread->state;
}

std::uint64_t ks_thread_identity(ks_thread_t *thread) {
  return thread->identity;
}

ks_thread_t *ks_thread_self() {
  if (self_handle != nullptr) return self_handle;
  thread_local foreign_handle foreign;
  std::unique_ptr<ks_thread_t> made(new (std::nothrow) ks_thread_t);
  if (made == nullptr) {
    failed(ENOMEM);
    return nullptr;
  }
  pthread_attr_init(&made->attributes);
  made->id = pthread_self();
  made->state = KS_THREAD_RUNNING;
  made->identity = static_cast<std::uint64_t>(static_cast<std::uint32_t>(getpid())) << 32;
  ks_object_register(made.get(), end_thread);
  return self_handle = foreign.thread = made.release();
}

int ks_thread_destroy(ks_thread_t *thread) {
  if (thread == nullptr) return ks_null_argument();
  {
    std::lock_guard hold(thread->lock);
    if (thread->state == KS_THREAD_ENDED && !thread->joining) {
      pthread_detach(thread->id);
    } else if (thread->state != KS_THREAD_MADE && thread->state != KS_THREAD_JOINED) {
      return failed(EBUSY);
    }
  }
  return ks_object_drop(thread) < 0 ? KS_EINVAL : KS_OK;
}

}  // namespace qvr
