// Mutexes that survive fork, and semaphores with a time limit.
#pragma once

#include <pthread.h>
#include <semaphore.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "ks_object.h"

namespace qvr {

// A recursive mutex. In a child of fork(2) the first lock makes it anew, whoever held it in the
// parent. Also a BasicLockable, for std::lock_guard.
struct KSMutex : ks_object_t {
  pthread_mutex_t mutex;
  std::atomic<pid_t> pid;  // the process that made it

  int lock();
  int unlock();
};

// Null with errno set on failure.
KSMutex *ks_mutex_create();
// 0, or a portable number; a null mutex is logged and gives 2. Any thread.
int ks_mutex_lock(KSMutex *mutex);
int ks_mutex_unlock(KSMutex *mutex);
// Ends one ownership; the mutex goes with the last. 0, or a portable number.
int ks_mutex_destroy(KSMutex *mutex);

struct ks_mutex_closer {
  void operator()(KSMutex *mutex) const { ks_mutex_destroy(mutex); }
};
using ks_mutex_ptr = std::unique_ptr<KSMutex, ks_mutex_closer>;

struct ks_sem_t : ks_object_t {
  std::unique_ptr<sem_t> sem;
};

// Null with errno set on failure.
ks_sem_t *ks_sem_create(std::uint32_t count);
// Waits for up to `milliseconds` (the wall clock decides). 0; 81 when the time is up; else the
// portable number of the failure. A signal does not end the wait.
int ks_sem_wait(ks_sem_t *sem, std::uint32_t milliseconds);
// 0; 74 when the count is at its greatest already.
int ks_sem_post(ks_sem_t *sem);
int ks_sem_destroy(ks_sem_t *sem);

struct ks_sem_closer {
  void operator()(ks_sem_t *sem) const { ks_sem_destroy(sem); }
};
using ks_sem_ptr = std::unique_ptr<ks_sem_t, ks_sem_closer>;

}  // namespace qvr
