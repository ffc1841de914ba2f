// Finding attributes by name in a list of twenty.
#include <benchmark/benchmark.h>

#include <string>

#include "attrlist.h"

namespace {

qvr::attrlist twenty() {
  qvr::attrlist list;
  for (int i = 0; i < 20; i++) {
    qvr::attrlist_add(list, "*policy attribute " + std::to_string(i * 7 % 20), "value");
  }
  return list;
}

void attrlist_find(benchmark::State &state) {
  const qvr::attrlist list = twenty();
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(qvr::attrlist_find(list, list[next].name));
    next = next + 1 == list.size() ? 0 : next + 1;
  }
}
BENCHMARK(attrlist_find);

void attrlist_find_missing(benchmark::State &state) {
  const qvr::attrlist list = twenty();
  for (auto _ : state) benchmark::DoNotOptimize(qvr::attrlist_find(list, "*policy attribute 55"));
}
BENCHMARK(attrlist_find_missing);

}  // namespace
