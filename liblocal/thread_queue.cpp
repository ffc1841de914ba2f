#include "thread_queue.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>

#include "debug_words.h"
#include "ks_errors.h"
#include "ks_list.h"
#include "ks_mutex.h"
#include "ks_threads.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr std::size_t SLOTS = 255;
constexpr std::uint32_t IDLE_LIMIT = 60000;  // milliseconds

struct worker_slot_t {
  ks_thread_queue_t *queue = nullptr;
  ks_thread_t *thread = nullptr;
  bool left = false;  // the worker ended and is not yet joined
};

}  // namespace

// The lock order is the caller's, `lock`, the list's own. `lock` is not held while a worker runs or
// the semaphore is posted.
struct ks_thread_queue_t : ks_object_t {
  bool wait_for_drain = false;
  std::uint8_t minimum = 0;
  std::uint8_t maximum = 0;
  void (*worker)(void *) = nullptr;
  void (*finish)(void *) = nullptr;
  std::atomic<std::uint32_t> idle_limit{IDLE_LIMIT};
  std::atomic<int> idle{0};  // workers that wait on the semaphore

  ks_mutex_ptr lock;  // guards the next four
  bool stop = false;
  std::uint8_t threads = 0;
  std::uint8_t exited = 0;
  std::array<worker_slot_t, SLOTS> slots;

  ks_sem_ptr semaphore;  // one count for each item; it may hold more
  ks_list_ptr items;

  std::mutex drain_lock;  // with `drained`: the list became empty, or a worker left
  std::condition_variable drained;
};

namespace {

void tell_drain(ks_thread_queue_t &queue) {
  std::lock_guard hold(queue.drain_lock);
  queue.drained.notify_all();
}

// Takes the first item and works on it. False when there was none.
bool work_on_first(ks_thread_queue_t &queue) {
  void *item = nullptr;
  if (ks_list_remove_at(queue.items.get(), 1, &item) != KS_OK) return false;
  if (ks_list_count(queue.items.get()) == 0) tell_drain(queue);
  queue.worker(item);
  if (queue.finish != nullptr) queue.finish(item);
  return true;
}

void leave(worker_slot_t &slot) {
  slot.queue->threads--;
  slot.queue->exited++;
  slot.left = true;
}

// One turn of a worker; false when it has left.
bool worker_turn(worker_slot_t &slot) {
  ks_thread_queue_t &queue = *slot.queue;
  queue.idle++;
  int rc = ks_sem_wait(queue.semaphore.get(), queue.idle_limit);
  queue.idle--;
  if (rc == KS_OK) {
    work_on_first(queue);
    // The counts of semaphore and list can differ; this keeps an item from being forgotten.
    if (ks_list_count(queue.items.get()) != 0) ks_sem_post(queue.semaphore.get());
    std::lock_guard hold(*queue.lock);
    if (!queue.stop) return true;
    leave(slot);
    return false;
  }
  if (rc != KS_ETIMEDOUT) {
    KS_DEBUG(1, "Encountered an error while waiting on thread queue semaphore: %s\n",
             ks_strerror(ks_errno_of(rc)));
  }
  std::lock_guard hold(*queue.lock);
  bool stays = rc == KS_ETIMEDOUT && !queue.stop &&
               (queue.threads <= queue.minimum || ks_list_count(queue.items.get()) != 0);
  if (!stays) leave(slot);
  return stays;
}

void *run_worker(void *argument) {
  auto *slot = static_cast<worker_slot_t *>(argument);
  while (worker_turn(*slot)) {
  }
  tell_drain(*slot->queue);
  return nullptr;
}

void free_slot(worker_slot_t &slot) {
  ks_thread_destroy(slot.thread);
  slot.thread = nullptr;
  slot.left = false;
}

// Adds a worker in the first free of the first `maximum` slots. The queue is locked.
int add_worker(ks_thread_queue_t &queue) {
  for (std::size_t i = 0; i < queue.maximum; i++) {
    worker_slot_t &slot = queue.slots[i];
    if (slot.thread != nullptr) continue;
    slot.queue = &queue;
    slot.thread = ks_thread_create(run_worker, &slot);
    if (slot.thread == nullptr) return ks_last_error();
    int rc = ks_thread_start(slot.thread);
    if (rc == KS_OK) {
      queue.threads++;
    } else {
      free_slot(slot);
    }
    return rc;
  }
  return KS_EBUSY;
}

void join_exited(ks_thread_queue_t &queue) {
  for (worker_slot_t &slot : queue.slots) {
    if (queue.exited == 0) return;
    if (slot.thread == nullptr || !slot.left) continue;
    ks_thread_join(slot.thread, nullptr);
    free_slot(slot);
    queue.exited--;
  }
}

void stop_workers(ks_thread_queue_t &queue) {
  {
    std::lock_guard hold(*queue.lock);
    queue.stop = true;
  }
  for (std::size_t i = 0; i < SLOTS; i++) ks_sem_post(queue.semaphore.get());
  for (worker_slot_t &slot : queue.slots) {
    if (slot.thread == nullptr) continue;
    ks_thread_join(slot.thread, nullptr);
    free_slot(slot);
  }
}

// Waits until no item waits. A queue whose every worker is gone is worked empty right here.
void drain(ks_thread_queue_t &queue) {
  {
    auto settled = [&queue] {
      if (ks_list_count(queue.items.get()) == 0) return true;
      std::lock_guard hold(*queue.lock);
      return queue.threads == 0;
    };
    std::unique_lock hold(queue.drain_lock);
    queue.drained.wait(hold, settled);
  }
  while (ks_list_count(queue.items.get()) != 0 && work_on_first(queue)) {
  }
}

void end_queue(ks_object_t *object) {
  std::unique_ptr<ks_thread_queue_t> queue(static_cast<ks_thread_queue_t *>(object));
  if (queue->wait_for_drain) drain(*queue);
  stop_workers(*queue);
}

int compare_numbers(const void *a, const void *b) {
  auto left = reinterpret_cast<std::uintptr_t>(a), right = reinterpret_cast<std::uintptr_t>(b);
  return left == right ? 0 : left < right ? -1 : 1;
}

}  // namespace

ks_thread_queue_t *ks_tq_create(void (*worker)(void *item), void (*finish)(void *item),
                                std::uint8_t minimum, std::uint8_t maximum, bool wait_for_drain) {
  if (worker == nullptr || maximum == 0 || minimum > maximum) {
    ks_set_error(EINVAL, KS_ERROR_ERRNO);
    return nullptr;
  }
  std::unique_ptr<ks_thread_queue_t> made(new (std::nothrow) ks_thread_queue_t);
  if (made == nullptr) {
    ks_set_error(ENOMEM, KS_ERROR_ERRNO);
    return nullptr;
  }
  ks_thread_queue_t &queue = *made;
  queue.worker = worker;
  queue.finish = finish;
  queue.minimum = minimum;
  queue.maximum = maximum;
  queue.wait_for_drain = wait_for_drain;
  queue.lock.reset(ks_mutex_create());
  queue.semaphore.reset(ks_sem_create(0));
  queue.items.reset(ks_list_create({finish, nullptr, compare_numbers, nullptr}, 0));
  if (!queue.lock || !queue.semaphore || !queue.items) return nullptr;
  int rc = KS_OK;
  {
    std::lock_guard hold(*queue.lock);
    for (int i = 0; i < minimum && rc == KS_OK; i++) rc = add_worker(queue);
  }
  if (rc != KS_OK) {
    stop_workers(queue);
    ks_set_error(ks_errno_of(rc), KS_ERROR_ERRNO);
    return nullptr;
  }
  ks_object_register(made.get(), end_queue);
  return made.release();
}

int ks_tq_share(ks_thread_queue_t *queue) {
  return ks_object_hold(queue);
}

int ks_tq_push(ks_thread_queue_t *queue, void *item) {
  if (queue == nullptr || item == nullptr) return ks_null_argument();
  int rc = ks_list_append(queue->items.get(), item, item);
  if (rc != KS_OK) return rc;
  {
    std::lock_guard hold(*queue->lock);
    if (queue->exited > 0) join_exited(*queue);
    bool served = queue->idle > 0 && ks_list_count(queue->items.get()) < 2;
    // A queue without a new worker is slower, no more.
    if (queue->threads < queue->maximum && !served) (void)add_worker(*queue);
  }
  rc = ks_sem_post(queue->semaphore.get());
  if (rc == KS_OK || rc == KS_ERANGE) return KS_OK;
  void *back = nullptr;
  ks_list_remove(queue->items.get(), item, &back);
  tell_drain(*queue);
  return rc;
}

std::uint32_t ks_tq_count(ks_thread_queue_t *queue) {
  if (queue == nullptr) {
    ks_null_argument();
    return 0;
  }
  return ks_list_count(queue->items.get());
}

int ks_tq_destroy(ks_thread_queue_t *queue) {
  if (queue == nullptr) return ks_null_argument();
  return ks_object_drop(queue) < 0 ? KS_EINVAL : KS_OK;
}

void ks_tq_set_idle_limit(ks_thread_queue_t *queue, std::uint32_t milliseconds) {
  queue->idle_limit = milliseconds;
}

std::uint8_t ks_tq_threads(ks_thread_queue_t *queue) {
  std::lock_guard hold(*queue->lock);
  return queue->threads;
}

}  // namespace qvr
