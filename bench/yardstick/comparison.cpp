#include "comparison.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "call_log.h"
#include "processes.h"

namespace qvr::bench {

namespace {

constexpr double MIB = 1 << 20;
constexpr std::int64_t NOW = 1760000000;  // behind which the records lie
constexpr const char *ALL = "savetime>1/1/2020";
constexpr const char *COLUMNS = "ssid,client,name,level,savetime,totalsize,nfiles,ssretent";

std::string text(std::int64_t value) {
  return std::to_string(value);
}

__attribute__((format(printf, 1, 2))) std::string rounded(const char *format, ...) {
  char buffer[64];
  std::va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  return buffer;
}

using words_t = std::vector<std::string>;

class comparison {
 public:
  comparison(const comparison_size_t &size, const std::string &directory)
      : size_(size), directory_(directory), command_(beside("reelscan")) {}

  std::vector<figure_t> run_all() {
    prepare();
    plain_and_yardsticks();
    encrypted();
    starts();
    walk();
    growth_of_save_sets();
    growth_of_volumes();
    if (size_.whole) from_memory();
    return std::move(figures_);
  }

 private:
  using samples_t = std::map<std::string, std::vector<double>>;

  std::string file(const std::string &name) const { return directory_ + "/" + name; }

  static void tell(const char *what) { std::fprintf(stderr, "yardstick: %s\n", what); }

  double ms_of(const std::string &name) { return median(samples_[name]) * 1e3; }
  // Microseconds a save set.
  std::string each(const std::string &name) {
    return rounded("%.2f µs", median(samples_[name]) * 1e6 / size_.savesets);
  }

  std::vector<double> ratios(const std::string &of, const std::string &to) {
    std::vector<double> list;
    const std::vector<double> &a = samples_[of], &b = samples_[to];
    for (std::size_t i = 0; i < a.size() && i < b.size(); i++) list.push_back(a[i] / b[i]);
    return list;
  }

  void hold(std::string what, std::string unit, bound_t bound, double target,
            std::vector<double> values, std::string of) {
    figures_.push_back(
        {std::move(what), std::move(unit), target, bound, std::move(values), std::move(of)});
  }

  // A run of the command, which must succeed.
  run_cost_t command(const words_t &arguments, const std::string &out = "/dev/null",
                     int status = 0) {
    words_t argv = {command_};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    run_cost_t cost = run(argv, out);
    if (cost.status != status) give_up("the command ended with " + text(cost.status));
    return cost;
  }

  void take(const std::string &name, double value) { samples_[name].push_back(value); }

  void yardstick(const std::string &name) {
    words_t argv = {"env", "LC_ALL=en_US.UTF-8", beside("yardstick"), name, file("pages")};
    take(name, std::strtod(output_of(argv).c_str(), nullptr));
  }

  static words_t lab_of(std::uint64_t savesets, words_t more = {}) {
    words_t options = {"--sample", "1",      "--scale", text(static_cast<std::int64_t>(savesets)),
                       "--now",    text(NOW)};
    options.insert(options.end(), more.begin(), more.end());
    return options;
  }

  void prepare() {
    tell("preparing records");
    output_of({beside("yardstick"), "--pages", file("pages"), text(size_.savesets), text(NOW)});
    output_of({beside("yardstick"), "--volumes", file("walk.db"), "200", "100", text(NOW)});
  }

  void make_shell_file() {
    command({"-q", ALL, "-r", COLUMNS, "-xc\\t"}, file("rows"));
    output_of({"sqlite3", file("rows.db"), ".mode tabs", ".import " + file("rows") + " r"});
  }

  void plain_and_yardsticks() {
    tell("the whole report and its yardsticks");
    lab_t lab(lab_of(size_.savesets));
    make_shell_file();
    for (unsigned i = 0; i < size_.repetitions; i++) {
      yardstick("tirpc");
      run_cost_t plain = command({"-q", ALL, "-r", COLUMNS, "-xc,"});
      take("plain", plain.cpu);
      take("plain wall", plain.wall);
      take("peak", plain.peak);
      yardstick("decode");
      yardstick("drain");
      run_cost_t table = command({"-q", ALL, "-r", COLUMNS});
      take("table", table.wall);
      take("table cpu", table.cpu);
      run_cost_t shell = run({"sqlite3", "-column", file("rows.db"), "select * from r"});
      take("shell", shell.wall);
      take("shell cpu", shell.cpu);
      yardstick("strcoll");
      yardstick("sort");
    }
    tell_report();
    tell_table_and_sort();
  }

  void tell_report() {
    hold("CPU of a whole report, delimited, to libtirpc's decode alone", "", bound_t::at_most, 0.85,
         ratios("plain", "tirpc"), each("plain") + " a save set to " + each("tirpc"));
    hold("of it, the least that reading the bytes takes (bare readv)", "", bound_t::at_most, 0,
         ratios("drain", "plain"), each("drain"));
    hold("decoding alone, to libtirpc's", "", bound_t::at_most, 0.5, ratios("decode", "tirpc"),
         each("decode"));
    struct stat facts {};
    if (stat(file("pages").c_str(), &facts) != 0) give_up("no pages");
    auto wire = static_cast<double>(facts.st_size);
    std::vector<double> held;
    for (double peak : samples_["peak"]) held.push_back((peak - 16 * MIB) / wire);
    hold("peak memory less 16 MiB, a wire byte", "bytes", bound_t::at_most, 1.75, held,
         rounded("%.0f MiB", median(samples_["peak"]) / MIB) +
             rounded(" of %.0f MiB on the wire", wire / MIB));
  }

  void tell_table_and_sort() {
    hold("rows a second as a table, whole command, to `sqlite3 -column` from a file", "",
         bound_t::at_least, 0.9, ratios("shell", "table"),
         rounded("%.0f ms wall", ms_of("table")) + rounded(" to %.0f ms", ms_of("shell")));
    hold("the same in processor time", "", bound_t::at_least, 0, ratios("shell cpu", "table cpu"),
         each("table cpu") + " a row to " + each("shell cpu"));
    hold("sorting rows by volume in en_US.UTF-8, to qsort with strcoll", "", bound_t::at_most, 0.1,
         ratios("sort", "strcoll"),
         rounded("%.0f ms", ms_of("sort")) + rounded(" to %.0f ms", ms_of("strcoll")));
  }

  void encrypted() {
    tell("the encrypted channel");
    lab_t lab(lab_of(size_.savesets, {"--auth-methods", "0.0.0.0/0,qvrauth", "--encrypted"}));
    double plain = median(samples_["plain"]);
    std::vector<double> more;
    for (unsigned i = 0; i < size_.repetitions; i++) {
      double cpu = command({"-q", ALL, "-r", COLUMNS, "-xc,"}).cpu;
      take("encrypted", cpu);
      yardstick("crypt");
      more.push_back((cpu - plain) / samples_["crypt"].back());
    }
    hold("what the encrypted channel adds, to OpenSSL's time for the bytes", "", bound_t::at_most,
         1.2, more, each("encrypted") + " a save set; OpenSSL " + each("crypt"));
  }

  // Lines that a shell's pipe prints.
  static std::string count_of(const std::string &pipe) {
    std::string count = output_of({"sh", "-c", pipe + " | wc -l"});
    return count.erase(count.find_last_not_of('\n') + 1);
  }

  // Seconds of a default report outside of calls of the network.
  double not_network() {
    std::string told = file("network_time");
    setenv("LD_PRELOAD", beside("network_time.so").c_str(), 1);
    setenv("NETWORK_TIME", told.c_str(), 1);
    run_cost_t cost = run({command_});
    unsetenv("LD_PRELOAD");
    unsetenv("NETWORK_TIME");
    std::string network = output_of({"cat", told});
    return cost.wall - std::strtod(network.c_str(), nullptr);
  }

  void starts() {
    tell("short runs");
    // A day's share of these is a thousand.
    lab_t lab({"--sample", "1", "--scale", "35000"});
    command({});
    for (unsigned i = 0; i < size_.starts; i++) {
      run_cost_t report = command({});
      take("default", report.wall * 1e3);
      take("default cpu", report.cpu * 1e3);
      take("default not network", not_network() * 1e3);
      take("usage", command({"-r"}, "/dev/null", 1).wall * 1e3);
    }
    std::string rows = count_of(command_ + " | tail -n +2"),
                sets = count_of(command_ + " -r ssid | sort -u");
    hold("default report of the last day, start to end", "ms", bound_t::at_most, 15,
         samples_["default"], sets + " save sets in " + rows + " rows");
    hold("of it, what is not network", "ms", bound_t::at_most, 5, samples_["default not network"],
         "outside of calls of the network");
    hold("its processor time, with the network's", "ms", bound_t::at_most, 0,
         samples_["default cpu"], "");
    hold("usage error, with the lab running", "ms", bound_t::at_most, 5, samples_["usage"], "");
  }

  void walk() {
    tell("a walk through volumes");
    constexpr double DELAY = 0.020;
    std::string log = file("calls");
    lab_t lab(
        {"--catalogue", file("walk.db"), "--log", log, "--fault", "daemon=qvrmmdbd,delay=20"});
    std::vector<double> ratio;
    std::size_t before = 0, calls = 0;
    for (unsigned i = 0; i < (size_.repetitions + 1) / 2; i++) {
      double wall = command({"-q", "level=full", "-r", "volume,ssid,name"}).wall;
      std::size_t all = 0;
      for (const lab_event &event : read_call_log(log))
        all += event.event == "call" && event.daemon == "qvrmmdbd";
      calls = all - before;
      before = all;
      take("walk", wall);
      ratio.push_back(wall / (static_cast<double>(calls) * DELAY / 4));
    }
    hold("a walk through 200 volumes, 20 ms a call, to a quarter of its calls", "",
         bound_t::at_most, 1.05, ratio,
         rounded("%.0f ms", ms_of("walk")) + " for " + text(static_cast<std::int64_t>(calls)) +
             " calls");
  }

  // Processor seconds of a report at a lab.
  double cpu_at(const words_t &lab_options, const words_t &arguments) {
    lab_t lab(lab_options);
    std::vector<double> costs;
    for (unsigned i = 0; i < size_.repetitions; i++) costs.push_back(command(arguments).cpu);
    return median(costs);
  }

  void growth(const char *what, const std::vector<double> &costs, std::int64_t least) {
    for (std::size_t i = 1; i < costs.size(); i++, least *= 10) {
      hold(std::string("ten times the ") + what + ", from " + text(least), "", bound_t::at_most, 11,
           {costs[i] / costs[i - 1]},
           rounded("%.0f ms", costs[i - 1] * 1e3) + rounded(" to %.0f ms", costs[i] * 1e3));
    }
  }

  void growth_of_save_sets() {
    tell("growth");
    std::vector<double> costs;
    for (unsigned count = 10000; count < size_.savesets; count *= 10)
      costs.push_back(cpu_at(lab_of(count), {"-q", ALL, "-r", COLUMNS, "-xc,"}));
    costs.push_back(median(samples_["plain"]));
    growth("save sets", costs, 10000);
  }

  void growth_of_volumes() {
    std::vector<double> costs;
    unsigned most = size_.whole ? 100000 : 10000;
    for (unsigned count = 1000; count <= most; count *= 10) {
      std::string name = file("volumes.db");
      output_of({beside("yardstick"), "--volumes", name, text(count), "1", text(NOW)});
      costs.push_back(cpu_at({"--catalogue", name}, {"-m"}));
    }
    growth("volumes", costs, 1000);
  }

  // Rows that are composed and written from memory; the benchmark holds itself against the shell.
  void from_memory() {
    tell("rows from memory");
    struct {
      const char *form, *what;
      double target;
    } rows[] = {
        {"table", "composing and writing rows from memory, to the shell's `-column`", 3},
        {"delimited", "the same delimited, to `-csv`", 2},
    };
    for (const auto &row : rows) {
      std::vector<double> times;
      for (unsigned i = 0; i < 3; i++) {
        std::string said = output_of(
            {beside("bench_report_rows"), std::string("--benchmark_filter=/") + row.form});
        std::size_t at = said.find("times=");
        if (at == std::string::npos) give_up("bench_report_rows does not say its ratio");
        times.push_back(std::strtod(said.c_str() + at + 6, nullptr));
      }
      hold(row.what, "", bound_t::at_least, row.target, times, "");
    }
  }

  comparison_size_t size_;
  std::string directory_;
  std::string command_;
  samples_t samples_;
  std::vector<figure_t> figures_;
};

}  // namespace

std::vector<figure_t> compare(const comparison_size_t &size, const std::string &directory) {
  return comparison(size, directory).run_all();
}

}  // namespace qvr::bench
