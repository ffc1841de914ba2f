#include "ks_mutex.h"

#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "debug_words.h"
#include "ks_errors.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

int make_recursive(pthread_mutex_t &mutex) {
  pthread_mutexattr_t attributes;
  int rc = pthread_mutexattr_init(&attributes);
  if (rc != 0) return rc;
  rc = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  if (rc == 0) rc = pthread_mutex_init(&mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return rc;
}

std::atomic<pid_t> this_process{0};

// The process id without a system call for each lock: a child of fork(2) forgets its parent's.
pid_t current_process() {
  pid_t known = this_process.load(std::memory_order_relaxed);
  if (known != 0) return known;
  static const int registered = pthread_atfork(nullptr, nullptr, [] { this_process = 0; });
  pid_t self = getpid();
  if (registered == 0) this_process = self;
  return self;
}

int null_object() {
  KS_UNEXPECTED(ks_strerror(EINVAL));
  return ks_null_argument();
}

void end_mutex(ks_object_t *object) {
  std::unique_ptr<KSMutex> mutex(static_cast<KSMutex *>(object));
  pthread_mutex_destroy(&mutex->mutex);
}

}  // namespace

KSMutex *ks_mutex_create() {
  std::unique_ptr<KSMutex> made(new (std::nothrow) KSMutex);
  if (made == nullptr) {
    ks_set_error(ENOMEM, KS_ERROR_ERRNO);
    return nullptr;
  }
  int rc = make_recursive(made->mutex);
  if (rc != 0) {
    ks_set_error(rc, KS_ERROR_ERRNO);
    return nullptr;
  }
  made->pid = current_process();
  ks_object_register(made.get(), end_mutex);
  return made.release();
}

int KSMutex::lock() {
  // A child of fork has this one thread: nobody else can be making the mutex anew.
  pid_t self = current_process();
  if (pid.load(std::memory_order_relaxed) != self) {
    int rc = make_recursive(mutex);
    if (rc != 0) return ks_set_error(rc, KS_ERROR_ERRNO);
    pid = self;
  }
  int rc = pthread_mutex_lock(&mutex);
  return rc == 0 ? KS_OK : ks_set_error(rc, KS_ERROR_ERRNO);
}

int KSMutex::unlock() {
  int rc = pthread_mutex_unlock(&mutex);
  return rc == 0 ? KS_OK : ks_set_error(rc, KS_ERROR_ERRNO);
}

int ks_mutex_lock(KSMutex *mutex) {
  return mutex == nullptr ? null_object() : mutex->lock();
}

int ks_mutex_unlock(KSMutex *mutex) {
  return mutex == nullptr ? null_object() : mutex->unlock();
}

int ks_mutex_destroy(KSMutex *mutex) {
  if (mutex == nullptr) return null_object();
  return ks_object_drop(mutex) < 0 ? KS_EINVAL : KS_OK;
}

namespace {

void end_sem(ks_object_t *object) {
  std::unique_ptr<ks_sem_t> sem(static_cast<ks_sem_t *>(object));
  sem_destroy(sem->sem.get());
}

}  // namespace

ks_sem_t *ks_sem_create(std::uint32_t count) {
  std::unique_ptr<ks_sem_t> made(new (std::nothrow) ks_sem_t);
  if (made != nullptr) made->sem.reset(new (std::nothrow) sem_t);
  if (made == nullptr || made->sem == nullptr) {
    ks_set_error(ENOMEM, KS_ERROR_ERRNO);
    return nullptr;
  }
  if (sem_init(made->sem.get(), 0, count) != 0) {
    ks_set_error(errno, KS_ERROR_ERRNO);
    return nullptr;
  }
  ks_object_register(made.get(), end_sem);
  return made.release();
}

int ks_sem_wait(ks_sem_t *sem, std::uint32_t milliseconds) {
  if (sem == nullptr) return null_object();
  struct timeval now;
  gettimeofday(&now, nullptr);
  long nanoseconds = now.tv_usec * 1000L + static_cast<long>(milliseconds % 1000) * 1000000L;
  struct timespec deadline;
  deadline.tv_sec = now.tv_sec + static_cast<time_t>(milliseconds / 1000) +
                    static_cast<time_t>(nanoseconds / 1000000000L);
  deadline.tv_nsec = nanoseconds % 1000000000L;
  while (sem_timedwait(sem->sem.get(), &deadline) != 0) {
    if (errno != EINTR) return ks_set_error(errno, KS_ERROR_ERRNO);
  }
  return KS_OK;
}

int ks_sem_post(ks_sem_t *sem) {
  if (sem == nullptr) return null_object();
  if (sem_post(sem->sem.get()) == 0) return KS_OK;
  // A full semaphore has the number that the waiters' side of the house knows for it.
  return ks_set_error(errno == EOVERFLOW ? ERANGE : errno, KS_ERROR_ERRNO);
}

int ks_sem_destroy(ks_sem_t *sem) {
  if (sem == nullptr) return null_object();
  return ks_object_drop(sem) < 0 ? KS_EINVAL : KS_OK;
}

}  // namespace qvr
