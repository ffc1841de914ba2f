// A queue of work with a pool of threads of its own.
#pragma once

#include <cstdint>
#include <memory>

namespace qvr {

struct ks_thread_queue_t;

// Makes a queue whose threads call worker(item), and then finish(item) when that is not null, with
// each item in the order of arrival. `minimum` threads are made at once and stay; up to `maximum`
// are made as items wait. `wait_for_drain`: ks_tq_destroy lets the queue run empty first; otherwise
// the items left go to `finish` unworked. Null with errno set on failure.
ks_thread_queue_t *ks_tq_create(void (*worker)(void *item), void (*finish)(void *item),
                                std::uint8_t minimum, std::uint8_t maximum, bool wait_for_drain);
// One more owner: the queue then takes one more destroy to go. The owners, or -1.
int ks_tq_share(ks_thread_queue_t *queue);
// 0, or a portable number (see ks_errno_of for its text): 2 for a null item. The queue borrows the
// item until its worker is done. Any thread.
int ks_tq_push(ks_thread_queue_t *queue, void *item);
// Items that no worker has taken yet. Any thread.
std::uint32_t ks_tq_count(ks_thread_queue_t *queue);
// Ends the queue: when it returns, every worker has finished and what they wrote may be read. 0, or
// a portable number. Not from a worker.
int ks_tq_destroy(ks_thread_queue_t *queue);

// How long a worker beyond the minimum waits for work before it leaves: 60000 ms unless set.
void ks_tq_set_idle_limit(ks_thread_queue_t *queue, std::uint32_t milliseconds);
// Workers alive.
std::uint8_t ks_tq_threads(ks_thread_queue_t *queue);

struct ks_tq_closer {
  void operator()(ks_thread_queue_t *queue) const { ks_tq_destroy(queue); }
};
using ks_tq_ptr = std::unique_ptr<ks_thread_queue_t, ks_tq_closer>;

}  // namespace qvr
