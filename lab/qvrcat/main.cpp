// qvrcat: lists the save sets of a catalogue on storage, a line each.
#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "debug_words.h"
#include "mif_env.h"
#include "progname.h"
#include "queries.h"
#include "session.h"
#include "storage_session.h"

namespace {

using namespace qvr;

constexpr char USAGE[] =
    "usage: qvrcat ROOT -d DEVICE_PATH [-c CLIENT] [-a APPID] [-u SUBSPACE] [-N NAME] [-f FROM] "
    "[-t TO] [-n COUNT] [-T TIME[,TIME...]] [-U] [-D LEVEL]\n";

struct arguments_t {
  std::string root, device, client, subspace, name;
  std::int64_t appid = 0, debug = 0, from = 0, to = std::numeric_limits<std::int64_t>::max(),
               count = 0;
  std::vector<std::int64_t> times;
  bool uncommitted = false;
};

bool read_number(std::string_view text, std::int64_t &number) {
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number >= 0;
}

bool read_times(std::string_view text, std::vector<std::int64_t> &times) {
  for (;;) {
    std::size_t comma = text.find(',');
    std::int64_t time = 0;
    if (!read_number(text.substr(0, comma), time)) return false;
    times.push_back(time);
    if (comma == std::string_view::npos) return true;
    text.remove_prefix(comma + 1);
  }
}

bool read_arguments(int argc, char **argv, arguments_t &args) {
  for (int option; (option = getopt(argc, argv, "d:c:a:u:N:f:t:n:T:UD:")) != -1;) {
    bool good = true;
    switch (option) {
      case 'd':
        args.device = optarg;
        break;
      case 'c':
        args.client = optarg;
        break;
      case 'a':
        good = read_number(optarg, args.appid);
        break;
      case 'u':
        args.subspace = optarg;
        break;
      case 'N':
        args.name = optarg;
        break;
      case 'f':
        good = read_number(optarg, args.from);
        break;
      case 't':
        good = read_number(optarg, args.to);
        break;
      case 'n':
        good = read_number(optarg, args.count);
        break;
      case 'T':
        good = read_times(optarg, args.times);
        break;
      case 'U':
        args.uncommitted = true;
        break;
      case 'D':
        good = read_number(optarg, args.debug);
        break;
      default:
        return false;
    }
    if (!good) return false;
  }
  if (optind != argc - 1 || args.device.empty()) return false;
  args.root = argv[optind];
  return true;
}

attrlist session_attrs(const arguments_t &args) {
  attrlist attrs = attrlist_build({{"Server independent device path", {args.device}},
                                   {"hosts", {"localhost"}},
                                   {"username", {"qvrcat"}},
                                   {"password", {storage_hide("none")}},
                                   {"Disable DFA-BH", {"False"}},
                                   {"auth index", {args.client}}});
  if (!args.subspace.empty()) attrlist_set(attrs, "index subspace", args.subspace);
  if (args.uncommitted) attrlist_set(attrs, "index enable get uncommitted rec", "True");
  return attrs;
}

ss_list ask(const arguments_t &args) {
  if (!args.times.empty()) return fetchss_times(args.client, args.times, true);
  ss_page_t page;
  page.client = args.client;
  page.name = args.name;
  page.range = {static_cast<std::uint64_t>(args.from), static_cast<std::uint64_t>(args.to),
                args.count};
  return get_ss_page(page);
}

void print(const ss_t &ss) {
  std::string line = std::to_string(ss.savetime);
  char flags[16];
  std::snprintf(flags, sizeof flags, "0x%x", ss.ssflags);
  line.append("\t").append(ss.client).append("\t").append(ss.name).append("\t").append(flags);
  line.append("\t").append(std::to_string(ss.totalsize)).append("\t");
  for (const attr_t &attr : ss.attrs.unpack())
    for (const std::string &value : attr.values)
      line.append(attr.name).append(":").append(value).append(";");
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stdout);
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_ALL, "");
  ks_set_progname("qvrcat");
  arguments_t args;
  if (!read_arguments(argc, argv, args)) {
    std::fputs(USAGE, stderr);
    return 2;
  }
  if (args.client.empty()) args.client = mif_env().local_host();
  storage_register(storage_directory_library(args.root));
  debug_set_level(static_cast<int>(std::min<std::int64_t>(args.debug, 13)));
  idx_set_appid(args.appid);
  mif_use_storage(true, session_attrs(args));
  ss_list list;
  if (mif_connect() == MIF_CONNECTED) list = ask(args);
  if (const errobj_t *error = mif_last_error()) {
    std::string text = error->text;
    while (text.ends_with('\n')) text.pop_back();
    std::fprintf(stderr, "qvrcat: %s\n", text.c_str());
    return 2;
  }
  for (const ss_t *ss : list.rows) print(*ss);
  bool none = list.empty();
  mif_close();
  // Of a long list the loss may lie long before the last lines.
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fprintf(stderr, "qvrcat: cannot write to the standard output\n");
    return 2;
  }
  return none ? 1 : 0;
}
