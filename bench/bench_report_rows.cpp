// Composing and writing a million rows of eight columns from memory, against the sqlite3 shell's
// print of the same rows. The shell is measured in the same run where the machine has it; the
// counters "times" say how many of our runs fit into one of its.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "report.h"

namespace {

constexpr std::size_t row_count = 1000000;
constexpr std::size_t column_count = 8;
using row_t = std::array<std::string, column_count>;

struct column_kind_t {
  const char *name;
  qvr::rpt_type type;
  int width;
};

constexpr column_kind_t kinds[column_count] = {
    {"volume", qvr::RPT_STRING, 15}, {"client", qvr::RPT_STRING, 11},
    {"savetime", qvr::RPT_TIME, 9},  {"sumsize", qvr::RPT_BYTES, 8},
    {"ssid", qvr::RPT_ID, 11},       {"files", qvr::RPT_UNSIGNED, 9},
    {"level", qvr::RPT_LEVEL, 6},    {"name", qvr::RPT_STRING, 30},
};

const std::vector<row_t> &rows() {
  static const std::vector<row_t> made = [] {
    std::vector<row_t> list(row_count);
    for (std::size_t i = 0; i < row_count; i++) {
      list[i] = {"volume." + std::to_string(i / 1000),
                 "client" + std::to_string(i % 97),
                 "11/22/26",
                 std::to_string(i % 999) + " MB",
                 std::to_string(4000000000u - i),
                 std::to_string(i * 31 % 100003),
                 i % 7 == 0 ? "full" : "incr",
                 "/export/home/user" + std::to_string(i % 5003)};
    }
    return list;
  }();
  return made;
}

struct table_t {
  table_t() {
    fields.resize(column_count + 1);
    for (std::size_t i = 0; i < column_count; i++) {
      fields[i].mr_key = kinds[i].name;
      fields[i].mr_title = fields[i].mr_longname = kinds[i].name;
      fields[i].mr_type = kinds[i].type;
      fields[i].mr_width = static_cast<std::uint64_t>(kinds[i].width);
    }
    fields.back().mr_id = qvr::RPT_NEWLINE_ID;
    for (std::size_t i = 0; i < column_count; i++) {
      auto &column = columns.emplace_back();
      column.rc_mr = &fields[i];
      column.rc_width = kinds[i].width;
    }
    qvr::rpt_close_columns(columns, fields.back());
  }
  std::vector<qvr::mr_t> fields;
  qvr::report_columns_t columns;
};

// Processor seconds so far of this process or of the children it has waited for: what else runs on
// the machine does not count.
double processor_seconds(int whose) {
  rusage used;
  getrusage(whose, &used);
  auto seconds = [](const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

// Seconds of one whole report into /dev/null.
double report_seconds(qvr::rpt_form form, const char *spec) {
  table_t table;
  qvr::rpt_settings_t settings;
  settings.form = form;
  if (spec != nullptr) settings.spec = spec;
  settings.table = table.fields;
  settings.stream = std::fopen("/dev/null", "w");
  double start = processor_seconds(RUSAGE_SELF);
  {
    qvr::rpt_writer writer(settings, table.columns);
    writer.rpt_print_header();
    for (const row_t &row : rows()) {
      std::size_t next = 0;
      writer.rpt_print_row([&](const qvr::report_column_t &, char *buffer, std::size_t room) {
        const std::string &value = row[next++];
        std::size_t size = value.size() < room ? value.size() : room - 1;
        std::memcpy(buffer, value.data(), size);
        return size;
      });
    }
  }
  std::fclose(settings.stream);
  return processor_seconds(RUSAGE_SELF) - start;
}

// Seconds that the shell takes for the print alone: a run that prints less a run that only counts.
double shell_seconds(const std::string &mode) {
  static const std::string database = [] {
    char name[] = "/tmp/bench_report_rows.XXXXXX";
    int fd = mkstemp(name);
    std::string path = name;
    std::FILE *csv = fdopen(fd, "w");
    for (const row_t &row : rows()) {
      for (std::size_t i = 0; i < column_count; i++) {
        std::fprintf(csv, "%s%s", i == 0 ? "" : ",", row[i].c_str());
      }
      std::fputc('\n', csv);
    }
    std::fclose(csv);
    std::string make = "sqlite3 " + path +
                       ".db 'create table r(volume, client, savetime, sumsize, "
                       "ssid, files, level, name)' '.mode csv' '.import " +
                       path + " r'";
    if (std::system(make.c_str()) != 0) return std::string();
    std::remove(path.c_str());
    return path + ".db";
  }();
  struct remover_t {
    ~remover_t() { std::remove(database.c_str()); }
  };
  static remover_t remove_at_exit;
  if (database.empty()) return 0;
  auto timed = [&](const std::string &statement) {
    double start = processor_seconds(RUSAGE_CHILDREN);
    std::string command = "sqlite3 " + mode + " " + database + " '" + statement + "' >/dev/null";
    if (std::system(command.c_str()) != 0) return 0.0;
    return processor_seconds(RUSAGE_CHILDREN) - start;
  };
  double reading = timed(
      "select sum(length(volume)+length(client)+length(savetime)+length(sumsize)+"
      "length(ssid)+length(files)+length(level)+length(name)) from r");
  return timed("select * from r") - reading;
}

void measure(benchmark::State &state, qvr::rpt_form form, const char *spec,
             const char *shell_mode) {
  rows();
  double best = 1e9;
  for (auto _ : state) {
    double seconds = report_seconds(form, spec);
    state.SetIterationTime(seconds);
    best = seconds < best ? seconds : best;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(row_count) * state.iterations());
  if (shell_mode == nullptr || std::system("command -v sqlite3 >/dev/null") != 0) return;
  double shell = shell_seconds(shell_mode);
  state.counters["shell_s"] = shell;
  state.counters["times"] = shell / best;
}

BENCHMARK_CAPTURE(measure, table, qvr::RPT_FORM_NONE, nullptr, "-column")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(measure, delimited, qvr::RPT_FORM_DELIMITED, ",", "-csv")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(measure, printf_string, qvr::RPT_FORM_PRINTF, "%s %s %s %s %s %s %s %s\n",
                  nullptr)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(measure, xml, qvr::RPT_FORM_XML, "", nullptr)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace
