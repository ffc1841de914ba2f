#include "lab_options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <string_view>

#include "lab_sample.h"

namespace qvr {

namespace {

const char *const HELP_TEXT =
    "Usage: qvrlabd [option]...\n"
    "A small installation in one process, on loopback addresses only: port mapper, qvrexecd, qvrd\n"
    "and qvrmmdbd, which serve a catalogue. It runs until SIGTERM or SIGINT.\n"
    "\n"
    "  --sample SEED[:CLIENTS[:DAYS]]  serve a sample of that seed (default 1:8:35)\n"
    "  --scale N                       with at least N save sets\n"
    "  --now SECONDS                   lying behind that time instead of the clock's\n"
    "  --catalogue FILE                serve the catalogue of an SQLite file (lab/schema.sql)\n"
    "  --store FILE                    write the catalogue to FILE before serving it\n"
    "  --write-tree DIR                write its save sets as record files below DIR, which then\n"
    "                                  stands for an appliance (see qvrcat)\n"
    "  --device PATH                   of the device there (default /device)\n"
    "  --layout 1|2                    of its directories (default 2)\n"
    "  --no-serve                      end when the catalogue is written\n"
    "  --host NAME                     answer for this host (default: this host's name, or\n"
    "                                  localhost where that is not a loopback address)\n"
    "  --port N                        the port mapper's port (default 7938; 0: any, see the\n"
    "                                  line that is printed)\n"
    "  --log FILE                      write each connection and call to FILE, as JSON lines\n"
    "  --ready-fd N                    write the line \"ready ...\" there, not to standard output\n"
    "  --more 1|2                      how pages of save sets go on (default 2)\n"
    "  --page N                        save sets of a page at most\n"
    "  --login USER:PASSWORD           a user who may log in with a password\n"
    "  --auth-methods VALUE            a value of \"auth methods\", as ADDRESS/BITS,METHODS; may "
    "be\n"
    "                                  given more than once; the word none leaves it out\n"
    "  --encrypted                     \"connection encrypted\" is \"Enabled\"\n"
    "  --qop 1|2                       of session keys: 1 checksums only (default 2)\n"
    "  --insecure                      take RPCSEC_GSS clients without a session key\n"
    "  --no-gss                        run no authentication service\n"
    "  --fault SPEC                    misbehave (below); may be given more than once\n"
    "  --help                          this text\n"
    "\n"
    "When the daemons listen, one line says so: \"ready HOST PORT ADDRESS...\".\n"
    "\n";

enum option_key {
  SAMPLE = 1,
  SCALE,
  NOW,
  CATALOGUE,
  STORE,
  WRITE_TREE,
  DEVICE,
  LAYOUT,
  NO_SERVE,
  HOST,
  PORT,
  LOG,
  READY_FD,
  MORE,
  PAGE,
  LOGIN,
  AUTH_METHODS,
  ENCRYPTED,
  QOP,
  INSECURE,
  NO_GSS,
  FAULT,
  HELP
};

constexpr option OPTIONS[] = {
    {"sample", required_argument, nullptr, SAMPLE},
    {"scale", required_argument, nullptr, SCALE},
    {"now", required_argument, nullptr, NOW},
    {"catalogue", required_argument, nullptr, CATALOGUE},
    {"store", required_argument, nullptr, STORE},
    {"write-tree", required_argument, nullptr, WRITE_TREE},
    {"device", required_argument, nullptr, DEVICE},
    {"layout", required_argument, nullptr, LAYOUT},
    {"no-serve", no_argument, nullptr, NO_SERVE},
    {"host", required_argument, nullptr, HOST},
    {"port", required_argument, nullptr, PORT},
    {"log", required_argument, nullptr, LOG},
    {"ready-fd", required_argument, nullptr, READY_FD},
    {"more", required_argument, nullptr, MORE},
    {"page", required_argument, nullptr, PAGE},
    {"login", required_argument, nullptr, LOGIN},
    {"auth-methods", required_argument, nullptr, AUTH_METHODS},
    {"encrypted", no_argument, nullptr, ENCRYPTED},
    {"qop", required_argument, nullptr, QOP},
    {"insecure", no_argument, nullptr, INSECURE},
    {"no-gss", no_argument, nullptr, NO_GSS},
    {"fault", required_argument, nullptr, FAULT},
    {"help", no_argument, nullptr, HELP},
    {nullptr, 0, nullptr, 0},
};

template <class Number>
bool number(std::string_view text, Number low, Number high, Number &value) {
  auto [end, trouble] = std::from_chars(text.data(), text.data() + text.size(), value);
  return trouble == std::errc() && end == text.data() + text.size() && value >= low &&
         value <= high;
}

bool add_login(const std::string &text, lab_options &options) {
  std::size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  options.logins.push_back({text.substr(0, colon), text.substr(colon + 1)});
  return true;
}

// False with the reason in `why`.
bool take_option(int key, const char *text, lab_options &options, std::string &why) {
  bool good = true;
  int fd = 0;
  sample_options sample;
  switch (key) {
    case SAMPLE:
      options.sample = text;
      good = parse_sample(text, sample);
      break;
    case SCALE:
      good = number<std::uint64_t>(text, 0, 100000000, options.scale);
      break;
    case NOW:
      good = number<std::int64_t>(text, 1, INT32_MAX * std::int64_t{100}, options.now);
      break;
    case CATALOGUE:
      options.catalogue = text;
      break;
    case STORE:
      options.store = text;
      break;
    case WRITE_TREE:
      options.tree = text;
      break;
    case DEVICE:
      options.device = text;
      good = options.device.starts_with('/');
      break;
    case LAYOUT:
      good = number<int>(text, 1, 2, options.layout);
      break;
    case NO_SERVE:
      options.serve = false;
      break;
    case HOST:
      options.host = text;
      break;
    case PORT:
      good = number<std::uint16_t>(text, 0, UINT16_MAX, options.port);
      break;
    case LOG:
      options.log = text;
      break;
    case READY_FD:
      good = number<int>(text, 0, 1 << 20, fd);
      options.ready_fd = fd;
      break;
    case MORE:
      good = number<int>(text, 1, 2, options.more);
      break;
    case PAGE:
      good = number<std::int64_t>(text, 1, 8192, options.page);
      break;
    case LOGIN:
      good = add_login(text, options);
      break;
    case AUTH_METHODS:
      options.auth_methods.emplace_back(text);
      break;
    case ENCRYPTED:
      options.encrypted = true;
      break;
    case QOP:
      good = number<std::uint32_t>(text, 1, 2, options.qop);
      break;
    case INSECURE:
      options.insecure = true;
      break;
    case NO_GSS:
      options.gss = false;
      break;
    case FAULT: {
      auto fault = parse_fault(text, why);
      if (!fault) return false;
      options.faults.push_back(std::move(*fault));
      break;
    }
    default:
      why = "try qvrlabd --help";
      return false;
  }
  if (!good) why = std::string("bad value: ") + text;
  return good;
}

}  // namespace

bool parse_lab_options(int argc, char **argv, lab_options &options, int &status) {
  status = 1;
  for (int key; (key = getopt_long(argc, argv, "", OPTIONS, nullptr)) != -1;) {
    if (key == HELP) {
      std::fputs(HELP_TEXT, stdout);
      std::fputs(LAB_FAULT_HELP, stdout);
      status = 0;
      return false;
    }
    std::string why;
    if (!take_option(key, optarg, options, why)) {
      std::fprintf(stderr, "qvrlabd: %s\n", why.c_str());
      return false;
    }
  }
  if (optind < argc) {
    std::fprintf(stderr, "qvrlabd: unexpected argument: %s\n", argv[optind]);
    return false;
  }
  return true;
}

}  // namespace qvr
