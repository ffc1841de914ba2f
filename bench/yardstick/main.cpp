// The command beside its yardsticks.
//   yardstick [--short] [--table FILE]   the whole comparison; bench/compare runs it
//   yardstick NAME FILE                  one yardstick on a file of pages: processor seconds
//   yardstick --pages FILE COUNT NOW     makes a file of pages
//   yardstick --volumes FILE COUNT EACH NOW   makes a catalogue of volumes
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "comparison.h"
#include "made_locale.h"
#include "netns.h"
#include "pages.h"
#include "processes.h"
#include "temp_dir.h"
#include "volumes.h"
#include "yardsticks.h"

namespace {

using namespace qvr::bench;

constexpr double FAILED = 2;  // times its target

unsigned number(const char *text) {
  return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

int run_yardstick(const char *name, const char *file) {
  std::setlocale(LC_ALL, "");
  for (const yardstick_t &yardstick : yardsticks()) {
    if (std::strcmp(yardstick.name, name) != 0) continue;
    pages_t pages(file);
    std::printf("%.6f\n", yardstick.seconds(pages));
    // Taking down what was built is not measured, and takes as long.
    std::fflush(stdout);
    std::_Exit(0);
  }
  give_up(std::string("no yardstick ") + name + "; the published RPC library may be missing");
}

int run_comparison(bool brief, const char *table) {
  std::string why;
  auto host = qvr::test::private_host::make(why);
  if (host == nullptr || !host->enter()) give_up("no network of its own: " + why);
  setenv("TZ", "UTC", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  qvr::test::made_locale english("en_US", "en_US.UTF-8");
  qvr::temp_dir directory;
  comparison_size_t size;
  if (brief) size = {100000, 3, 11, false};
  std::vector<figure_t> figures = compare(size, directory.path());
  std::string text = table_text(figures);
  std::fputs(text.c_str(), stdout);
  if (table != nullptr && !write_table(table, text)) give_up(std::string("no table in ") + table);
  int failed = 0;
  for (const figure_t &figure : figures) {
    // What is told in milliseconds is no ratio, and on a busy machine tells of its load.
    if (figure.unit == "ms" || least_miss(figure) <= FAILED) continue;
    std::fprintf(stderr, "yardstick: more than twice its target: %s\n", figure.what.c_str());
    failed = 1;
  }
  return failed;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 5 && std::strcmp(argv[1], "--pages") == 0)
    return write_pages(argv[2], "1", number(argv[3]), number(argv[4])) ? 0 : 1;
  if (argc == 6 && std::strcmp(argv[1], "--volumes") == 0)
    return write_volumes(argv[2], number(argv[3]), number(argv[4]), number(argv[5])) ? 0 : 1;
  if (argc == 3 && argv[1][0] != '-') return run_yardstick(argv[1], argv[2]);
  bool brief = false;
  const char *table = nullptr;
  for (int i = 1; i < argc; i++) {
    if (std::strcmp(argv[i], "--short") == 0)
      brief = true;
    else if (std::strcmp(argv[i], "--table") == 0 && i + 1 < argc)
      table = argv[++i];
    else
      give_up(std::string("unknown argument: ") + argv[i]);
  }
  return run_comparison(brief, table);
}
