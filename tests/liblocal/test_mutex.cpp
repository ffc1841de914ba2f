#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ks_errors.h"
#include "ks_mutex.h"
#include "ks_object.h"
#include "ks_threads.h"

namespace qvr {
namespace {

TEST(ks_mutex, nests_and_excludes) {
  ks_mutex_ptr mutex(ks_mutex_create());
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&] {
      for (int i = 0; i < 5000; i++) {
        std::lock_guard outer(*mutex);
        std::lock_guard inner(*mutex);
        counter++;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(20000, counter);
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_mutex_lock(nullptr));
}

TEST(ks_mutex, a_child_of_fork_locks_what_its_parent_held) {
  ks_mutex_ptr mutex(ks_mutex_create());
  // Held by another thread of the parent, as a worker's would be.
  ks_sem_ptr held(ks_sem_create(0)), done(ks_sem_create(0));
  std::thread holder([&] {
    mutex->lock();
    ks_sem_post(held.get());
    ks_sem_wait(done.get(), 60000);
    mutex->unlock();
  });
  ks_sem_wait(held.get(), 60000);
  pid_t child = fork();
  if (child == 0) {
    alarm(20);
    int rc = mutex->lock();
    if (rc == 0) rc = mutex->lock();
    if (rc == 0) rc = mutex->unlock();
    if (rc == 0) rc = mutex->unlock();
    _exit(rc);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(0, status);
  ks_sem_post(done.get());
  holder.join();
}

TEST(ks_sem, counts_and_times_out) {
  ks_sem_ptr sem(ks_sem_create(1));
  EXPECT_EQ(KS_OK, ks_sem_wait(sem.get(), 0));
  EXPECT_EQ(KS_ETIMEDOUT, ks_sem_wait(sem.get(), 15));
  EXPECT_EQ(KS_OK, ks_sem_post(sem.get()));
  EXPECT_EQ(KS_OK, ks_sem_wait(sem.get(), 1500));
  ks_sem_ptr full(ks_sem_create(SEM_VALUE_MAX));
  EXPECT_EQ(KS_ERANGE, ks_sem_post(full.get()));
}

TEST(ks_object, registry_counts_owners_and_reuses_slots) {
  ks_registry_size_t before = ks_registry_size();
  std::vector<ks_object_t> objects(100);
  int destroyed = 0;
  static int *counter;
  counter = &destroyed;
  for (ks_object_t &object : objects)
    ks_object_register(&object, [](ks_object_t *) { ++*counter; });
  ks_registry_size_t full = ks_registry_size();
  EXPECT_EQ(before.live + 100, full.live);
  EXPECT_EQ(0u, full.slots % 32);

  ks_object_t &object = objects[50];
  std::int32_t slot = object.slot;
  EXPECT_EQ(KS_OBJECT_VALID, object.flags & KS_OBJECT_VALID);
  EXPECT_EQ(2, ks_object_hold(&object));
  EXPECT_EQ(1, ks_object_drop(&object));
  EXPECT_EQ(0, destroyed);
  EXPECT_EQ(0, ks_object_drop(&object));
  EXPECT_EQ(1, destroyed);
  EXPECT_EQ(0u, object.flags & KS_OBJECT_VALID);
  // The slot holds it no longer.
  EXPECT_EQ(-1, ks_object_release(&object));
  EXPECT_EQ(-1, ks_object_hold(&object));
  ks_object_t next;
  ks_object_register(&next, nullptr);
  EXPECT_EQ(slot, next.slot);
  EXPECT_EQ(0, ks_object_release(&next));
  for (ks_object_t &other : objects) {
    if (&other == &object) continue;
    EXPECT_EQ(0, ks_object_release(&other));
  }
  EXPECT_EQ(before.live, ks_registry_size().live);
}

struct thread_closer {
  void operator()(ks_thread_t *thread) const { ks_thread_destroy(thread); }
};
using thread_ptr = std::unique_ptr<ks_thread_t, thread_closer>;

TEST(ks_thread, runs_joins_and_runs_again) {
  int runs = 0;
  thread_ptr thread(ks_thread_create(
      [](void *argument) -> void * {
        ++*static_cast<int *>(argument);
        return argument;
      },
      &runs));
  EXPECT_EQ(KS_ESRCH, ks_thread_join(thread.get(), nullptr));
  for (int i = 1; i <= 2; i++) {
    void *value = nullptr;
    ASSERT_EQ(KS_OK, ks_thread_start(thread.get()));
    EXPECT_EQ(KS_EBUSY, ks_thread_start(thread.get()));
    EXPECT_EQ(KS_OK, ks_thread_join(thread.get(), &value));
    EXPECT_EQ(&runs, value);
    EXPECT_EQ(KS_THREAD_JOINED, ks_thread_get_state(thread.get()));
    EXPECT_EQ(i, runs);
  }
  EXPECT_EQ(KS_ESRCH, ks_thread_cancel(thread.get()));
}

TEST(ks_thread, the_least_stack_is_refused_and_one_byte_more_taken) {
  thread_ptr thread(ks_thread_create([](void *) -> void * { return nullptr; }, nullptr));
  EXPECT_EQ(KS_EINVAL, ks_thread_set_stack(thread.get(), KS_THREAD_STACK));
  EXPECT_EQ(KS_OK, ks_thread_set_stack(thread.get(), KS_THREAD_STACK + 1));
}

TEST(ks_thread, identities_and_oneself) {
  struct seen_t {
    std::uint64_t identity;
    int start, join;
  } seen = {};
  thread_ptr thread(ks_thread_create(
      [](void *argument) -> void * {
        auto &out = *static_cast<seen_t *>(argument);
        ks_thread_t *self = ks_thread_self();
        out = {ks_thread_identity(self), ks_thread_start(self), ks_thread_join(self, nullptr)};
        return nullptr;
      },
      &seen));
  ks_thread_start(thread.get());
  ks_thread_join(thread.get(), nullptr);
  EXPECT_EQ(ks_thread_identity(thread.get()), seen.identity);
  EXPECT_EQ(static_cast<std::uint64_t>(getpid()), seen.identity >> 32);
  EXPECT_NE(0u, seen.identity & 0xffffffff);
  EXPECT_EQ(KS_EDEADLK, seen.start);
  EXPECT_EQ(KS_EDEADLK, seen.join);
  // A thread that was not made here.
  ks_thread_t *self = ks_thread_self();
  EXPECT_EQ(self, ks_thread_self());
  EXPECT_EQ(0u, ks_thread_identity(self) & 0xffffffff);
  EXPECT_EQ(KS_THREAD_RUNNING, ks_thread_get_state(self));
}

TEST(ks_thread, a_detached_thread_frees_its_handle) {
  std::uint32_t before = ks_registry_size().live;
  ks_thread_t *thread = ks_thread_create(
      [](void *) -> void * {
        usleep(1000);
        return nullptr;
      },
      nullptr);
  ks_thread_start(thread);
  EXPECT_EQ(KS_OK, ks_thread_detach(thread));
  for (int i = 0; i < 5000 && ks_registry_size().live != before; i++) usleep(1000);
  EXPECT_EQ(before, ks_registry_size().live);
}

TEST(ks_thread, a_cancelled_thread_ends) {
  thread_ptr thread(ks_thread_create(
      [](void *) -> void * {
        ks_thread_allow_cancel(false);
        usleep(2000);
        ks_thread_allow_cancel(true);
        while (true) usleep(1000);
      },
      nullptr));
  ks_thread_start(thread.get());
  EXPECT_EQ(KS_OK, ks_thread_cancel(thread.get()));
  EXPECT_EQ(KS_EBUSY, ks_thread_destroy(thread.get()));
  EXPECT_EQ(KS_OK, ks_thread_join(thread.get(), nullptr));
}

}  // namespace
}  // namespace qvr
