// A million rows from records in memory to text: the default report's cells through table and
// delimited form, and the order "mcntl" over them.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

#include "arena.h"
#include "field_catalogue.h"
#include "report_output.h"
#include "report_spec.h"
#include "row_sort.h"

namespace {

constexpr std::size_t row_count = 1000000, volume_count = 500;

struct records_t {
  qvr::arena memory;
  std::vector<qvr::vol_t *> volumes;
  qvr::rows_t rows;

  records_t() {
    for (std::uint32_t i = 0; i < volume_count; i++) {
      auto *vol = memory.make<qvr::vol_t>();
      vol->volid.set_word(0, qvr::KSUI_VOLUME);
      vol->volid.set_word(1, i);
      vol->volume = memory.copy("TAPE." + std::to_string(i));
      volumes.push_back(vol);
    }
    rows.reserve(row_count);
    for (std::uint32_t i = 0; i < row_count; i++) add_row(i);
  }

  void add_row(std::uint32_t i) {
    const qvr::vol_t *vol = volumes[i * 7919u % volume_count];
    auto *ss = memory.make<qvr::ss_t>();
    ss->ssid.set_word(0, qvr::KSUI_SAVESET);
    ss->ssid.set_word(1, i);
    ss->client = memory.copy("client" + std::to_string(i % 97));
    ss->name = memory.copy("/export/home/user" + std::to_string(i % 5003));
    ss->savetime = 1600000000 + static_cast<std::int64_t>(i) * 61;
    ss->totalsize = i * 977ul;
    ss->level = static_cast<std::int32_t>(i % 11);
    qvr::clone_t *clone = memory.make_array<qvr::clone_t>(1).data();
    clone->frags = memory.make_array<qvr::frag_t>(1).data();
    clone->nfrags = 1;
    clone->frags[0].volid = vol->volid;
    ss->ncopies = 1;
    ss->clones = clone;
    rows.push_back({vol, ss, nullptr, nullptr, i});
  }
};

records_t &records() {
  static records_t made;
  return made;
}

void print(benchmark::State &state, qvr::export_kind_t kind, const char *spec) {
  std::FILE *out = std::freopen("/dev/null", "w", stdout);
  benchmark::DoNotOptimize(out);
  for (auto _ : state) {
    qvr::settings_t settings;
    settings.export_kind = kind;
    settings.export_spec = ",";
    qvr::report_columns_t columns;
    qvr::parse_report_spec(spec, columns);
    qvr::close_report(columns);
    qvr::report_output output(settings, false, columns);
    output.header();
    for (const qvr::row_t &row : records().rows) {
      output.row(row.row_vol, row.row_ss, nullptr, nullptr, true);
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(row_count) * state.iterations());
}

constexpr const char *plain =
    "volume, client, savetime, sumsize, space(2), level(6), space(2), name";
constexpr const char *wide =
    "volume, client, savetime(24), sumsize, ssid(11), sumflags(3), level, name";

BENCHMARK_CAPTURE(print, table, qvr::EXPORT_NONE, plain)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(print, table_with_clock, qvr::EXPORT_NONE, wide)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(print, delimited, qvr::EXPORT_DELIMITED, plain)->Unit(benchmark::kMillisecond);

void sort(benchmark::State &state) {
  for (auto _ : state) {
    state.PauseTiming();
    qvr::rows_t rows = records().rows;
    state.ResumeTiming();
    qvr::sort_rows("mcntl", rows);
    benchmark::DoNotOptimize(rows.data());
  }
}
BENCHMARK(sort)->Unit(benchmark::kMillisecond);

}  // namespace
