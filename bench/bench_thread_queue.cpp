// Work through the thread queue: 10,000 items, four threads.
#include <benchmark/benchmark.h>

#include <atomic>
#include <vector>

#include "thread_queue.h"

namespace {

std::atomic<long> sum{0};

void work(void *item) {
  sum.fetch_add(*static_cast<long *>(item), std::memory_order_relaxed);
}

void ten_thousand_items(benchmark::State &state) {
  std::vector<long> items(10000, 1);
  for (auto _ : state) {
    qvr::ks_tq_ptr queue(qvr::ks_tq_create(work, nullptr, 4, 4, true));
    for (long &item : items) qvr::ks_tq_push(queue.get(), &item);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long>(items.size()));
}
BENCHMARK(ten_thousand_items)->UseRealTime()->Unit(benchmark::kMillisecond);

// What a report pays for a queue that has nothing to wait for.
void create_and_destroy(benchmark::State &state) {
  for (auto _ : state) {
    qvr::ks_tq_ptr queue(qvr::ks_tq_create(work, nullptr, 4, 4, true));
    benchmark::DoNotOptimize(queue.get());
  }
}
BENCHMARK(create_and_destroy)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
