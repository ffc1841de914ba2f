// The format engine against the platform's print of the same formats.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "format.h"

namespace {

constexpr const char *formats[] = {
    "%s: %d of %d files\n",
    "%-20s %10s %8lu\n",
    "%d:%s: %s\n",
    "value %.2f of %5.1f%%\n",
};

// One row of arguments serves all formats of a shape; each is measured by itself.
template <class Print>
void print_each(benchmark::State &state, Print print) {
  char buffer[1024];
  std::size_t bytes = 0;
  for (auto _ : state) {
    switch (state.range(0)) {
      case 0:
        bytes +=
            static_cast<std::size_t>(print(buffer, sizeof buffer, formats[0], "mars", 17, 4711));
        break;
      case 1:
        bytes += static_cast<std::size_t>(
            print(buffer, sizeof buffer, formats[1], "/export/home", "full", 123456789ul));
        break;
      case 2:
        bytes += static_cast<std::size_t>(
            print(buffer, sizeof buffer, formats[2], 6095, "reelscan", "no matches found"));
        break;
      default:
        bytes += static_cast<std::size_t>(print(buffer, sizeof buffer, formats[3], 3.14159, 55.5));
        break;
    }
    benchmark::DoNotOptimize(buffer);
    benchmark::ClobberMemory();
  }
  state.SetLabel(formats[state.range(0)]);
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

void engine(benchmark::State &state) {
  print_each(state, [](char *buffer, std::size_t size, const char *format, auto... args) {
    return qvr::i18n_snprintf(buffer, size, format, args...);
  });
}
BENCHMARK(engine)->DenseRange(0, 3);

void platform(benchmark::State &state) {
  print_each(state, [](char *buffer, std::size_t size, const char *format, auto... args) {
    return std::snprintf(buffer, size, format, args...);
  });
}
BENCHMARK(platform)->DenseRange(0, 3);

}  // namespace
