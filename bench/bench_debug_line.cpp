// What a debug line costs that is not written, beside the load and compare that it stands for.
#include <benchmark/benchmark.h>

#include <atomic>

#include "debug_words.h"
#include "msg.h"

namespace {

std::atomic<int> level{0};

void load_and_compare(benchmark::State &state) {
  for (auto _ : state) {
    if (level.load(std::memory_order_relaxed) >= 5) benchmark::DoNotOptimize(&state);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(load_and_compare);

void line_of_a_closed_level(benchmark::State &state) {
  for (auto _ : state) {
    KS_DEBUG(5, "%s %d\n", "text", 3);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(line_of_a_closed_level);

void message_in_english(benchmark::State &state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        qvr::msg_text(144307, "C", "Only %d options for %s.\n",
                      {{qvr::MSG_ARG_INT, "1000"}, {qvr::MSG_ARG_HOST, "mars"}}));
  }
}
BENCHMARK(message_in_english);

void error_object(benchmark::State &state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        qvr::err_create(144307, 13022, "Only %d options for %s.\n",
                        {{qvr::MSG_ARG_INT, "1000"}, {qvr::MSG_ARG_HOST, "mars"}}));
  }
}
BENCHMARK(error_object);

}  // namespace
