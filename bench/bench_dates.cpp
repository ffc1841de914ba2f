// Reading and printing times.
#include <benchmark/benchmark.h>

#include <array>

#include "dates.h"

namespace {

void read_date(benchmark::State &state, const char *text) {
  for (auto _ : state) benchmark::DoNotOptimize(qvr::qvr_getdate(text));
}
BENCHMARK_CAPTURE(read_date, weeks_ago, "5 weeks ago");
BENCHMARK_CAPTURE(read_date, day_and_time, "3/7/2024 14:30 PST");
BENCHMARK_CAPTURE(read_date, every_month, "first monday every month");

void print_date(benchmark::State &state) {
  std::array<char, 64> room;
  std::int64_t time = 1709818205;
  for (auto _ : state) benchmark::DoNotOptimize(qvr::date_time_long(time++, room));
}
BENCHMARK(print_date);

}  // namespace
