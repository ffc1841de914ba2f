#include "campaigns.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

namespace qvr::test {

namespace {

#define PAGES "-q savetime>10~years~ago -r volume,ssid,client,level,name"
#define SMALL "--sample 1:1:1"
#define ENCRYPTED "--encrypted --auth-methods none "

constexpr scene_t sessions[] = {
    {.name = "pages", .lab = "--page 12", .words = PAGES},
    {.name = "pages-encrypted", .lab = ENCRYPTED "--page 12", .words = PAGES, .encrypted = true},
    {.name = "listing", .lab = "--page 12", .words = "-c vault -q savetime>10~years~ago -S -xm"},
    {.name = "walk",
     .lab = SMALL,
     .words = "-D 1 -a -xc; -r volid,volume,ssid,client,name",
     .losses = scene_t::losses_t::by_volume},
    {.name = "walk-encrypted",
     .lab = ENCRYPTED SMALL,
     .words = "-D 1 -a -xc; -r volid,volume,ssid,client,name",
     .losses = scene_t::losses_t::by_volume,
     .encrypted = true},
    {.name = "summary", .lab = SMALL, .words = "-D 1 -a -X", .losses = scene_t::losses_t::figures},
    {.name = "history", .lab = SMALL, .words = "-h -r ssid,property,newvalue"},
    {.name = "volumes", .lab = "", .words = "-O"},
    {.name = "clients", .lab = "", .words = "-C"},
};
constexpr std::span<const scene_t> all_sessions(sessions), page_sessions(sessions, 2),
    encrypted_session(sessions + 1, 1), some_sessions(sessions, 4), plain_session(sessions, 1);

// The shim with what it is to do, as the environment of the command.
std::vector<std::string> shim(std::string variable) {
  return {"LD_PRELOAD=" + built_program("hostile_shim.so"), std::move(variable),
          "ASAN_OPTIONS=verify_asan_link_order=0"};
}

// What the command may wait, by its own clock (docs/reliability.md). With damage that only ends
// connections it pauses and tries again; what may look like silence costs the handshake's time-out
// once; with each try, where a connection that is tried again stays out of step.
constexpr std::chrono::seconds PAUSES{900}, SILENCE{1900}, ALL_TRIES{72500};

// A fault of the server. Waits are so many times shorter than they say.
strike_t lab_strike(std::string fault, std::chrono::seconds told, int haste = 60) {
  strike_t strike;
  strike.lab_fault = std::move(fault);
  strike.env = shim("HOSTILE_HURRY=" + std::to_string(haste));
  strike.limit = std::chrono::seconds(600);
  strike.told = told;
  return strike;
}

// Cuts: an orderly close once, again on the connection that comes next, a reset, and a server that
// is gone from then on.
constexpr const char *cut_kinds[] = {",times=1", ",times=2", ",times=1,reset", ",refuse"};

std::size_t count_cuts(site_t &site, std::string &) {
  return site.bytes() * std::size(cut_kinds);
}

strike_t make_cut(const site_t &, const std::string &, std::size_t number) {
  return lab_strike("cut=" + std::to_string(number / std::size(cut_kinds)) +
                        cut_kinds[number % std::size(cut_kinds)],
                    PAUSES);
}

// Bits: each byte of replies, then of requests, the highest bit and one that changes from byte to
// byte.
std::size_t count_bits(site_t &site, std::string &) {
  return (site.bytes() + site.request_bytes()) * 2;
}

strike_t make_bit(const site_t &site, const std::string &, std::size_t number) {
  std::size_t byte = number / 2;
  int mask = number % 2 == 0 ? 0x80 : 1 << byte % 7;
  const char *way = byte < site.bytes() ? "spoil=" : "spoil-in=";
  if (byte >= site.bytes()) byte -= site.bytes();
  return lab_strike(way + std::to_string(byte) + ":" + std::to_string(mask), ALL_TRIES);
}

// The same of requests, which nobody answers then.
std::size_t count_request_cuts(site_t &site, std::string &) {
  return site.request_bytes() * std::size(cut_kinds);
}

strike_t make_request_cut(const site_t &, const std::string &, std::size_t number) {
  return lab_strike("cut-in=" + std::to_string(number / std::size(cut_kinds)) +
                        cut_kinds[number % std::size(cut_kinds)],
                    PAUSES);
}

// What the shim counts in a whole session: allocations and looks at the clock.
shim_counts_t shim_counts(site_t &site) {
  strike_t strike;
  strike.env = shim("HOSTILE_HURRY=1");
  shim_counts_t counts;
  site.run(strike, counts);
  return counts;
}

strike_t shim_strike(std::string variable) {
  strike_t strike;
  strike.env = shim(std::move(variable));
  return strike;
}

std::size_t count_allocations(site_t &site, std::string &) {
  return shim_counts(site).allocations * 2;
}

strike_t make_allocation(const site_t &, const std::string &, std::size_t number) {
  return shim_strike("HOSTILE_ALLOC=" + std::to_string(number / 2 + 1) +
                     (number % 2 == 0 ? "" : "+"));
}

// An hour on and back, into 2040 and into 2107.
constexpr const char *jumps[] = {":3600", ":-3600", ":430000000", ":2550000000"};

std::size_t count_clocks(site_t &site, std::string &) {
  return shim_counts(site).looks * std::size(jumps);
}

strike_t make_clock(const site_t &, const std::string &, std::size_t number) {
  return shim_strike("HOSTILE_CLOCK=" + std::to_string(number / std::size(jumps) + 1) +
                     jumps[number % std::size(jumps)]);
}

// System calls, by strace's injection: what each may fail with.
struct system_call_t {
  const char *name;
  const char *errors;
};
constexpr system_call_t system_calls[] = {
    {"read", "EINTR EIO"},
    {"readv", "EINTR EAGAIN ECONNRESET"},
    {"recvfrom", "EINTR EAGAIN ECONNRESET"},
    {"recvmsg", "EINTR EAGAIN ECONNRESET"},
    {"write", "EINTR EAGAIN ENOSPC EIO"},
    {"writev", "EINTR EAGAIN ECONNRESET EPIPE"},
    {"sendto", "EINTR EAGAIN ECONNRESET"},
    {"sendmsg", "EINTR EAGAIN ECONNRESET EPIPE"},
    {"poll", "EINTR ENOMEM"},
    {"connect", "EINTR EADDRINUSE ECONNREFUSED"},
    {"bind", "EADDRINUSE EACCES"},
    {"socket", "EMFILE ENOBUFS"},
    {"openat", "EMFILE EINTR"},
    {"fsync", "EINTR ENOSPC EIO"},
    {"fcntl", "EINTR"},
    {"setsockopt", "ENOPROTOOPT"},
    {"getsockname", "ENOBUFS"},
    {"dup", "EMFILE"},
    {"clone3", "EAGAIN"},
    {"mmap", "ENOMEM"},
    {"getrandom", "EINTR"},
};

// One line for each strike: the call, which, and how it fails.
std::size_t count_system_calls(site_t &site, std::string &text) {
  std::string file = "/tmp/hostile-" + std::to_string(getpid());
  strike_t strike;
  strike.wrapper = {"strace", "-f", "-qq", "-o", file};
  site.run(strike);
  std::ifstream lines(file);
  std::map<std::string, std::map<std::string, int>> counts;  // by call, by thread
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string thread, call;
    if (!(words >> thread >> call)) continue;
    if (std::size_t end = call.find('('); end != call.npos) counts[call.substr(0, end)][thread]++;
  }
  std::remove(file.c_str());
  std::size_t number = 0;
  for (const system_call_t &row : system_calls) {
    int most = 0;
    for (const auto &[thread, count] : counts[row.name]) most = std::max(most, count);
    for (int i = 1; i <= most; i++) {
      std::istringstream errors(row.errors);
      for (std::string error; errors >> error; number++) {
        text += std::string(row.name) + ":error=" + error + ":when=" + std::to_string(i) + '\n';
      }
    }
  }
  return number;
}

strike_t make_system_call(const site_t &, const std::string &text, std::size_t number) {
  std::istringstream lines(text);
  std::string line;
  for (std::size_t i = 0; i <= number; i++) std::getline(lines, line);
  strike_t strike;
  strike.wrapper = {"strace",    "-f",
                    "-qq",       "-o",
                    "/dev/null", "--seccomp-bpf",
                    "-e",        "trace=" + line.substr(0, line.find(':')),
                    "-e",        "inject=" + line};
  strike.limit = std::chrono::seconds(400);
  return strike;
}

// Slow servers: single bytes, silence for good, and in place of the n-th reply of a daemon.
struct daemon_t {
  const char *name;
  std::chrono::seconds told;  // what it costs when it answers nothing
};
constexpr daemon_t daemons[] = {{"pmap", std::chrono::seconds(120)},
                                {"qvrexecd", std::chrono::seconds(9500)},
                                {"qvrd", ALL_TRIES},
                                {"qvrmmdbd", SILENCE}};
constexpr std::size_t SILENT_CALLS = 6;

std::size_t count_slow(site_t &, std::string &) {
  return 1 + std::size(daemons) * (SILENT_CALLS + 1);
}

strike_t make_slow(const site_t &, const std::string &, std::size_t number) {
  if (number == 0) return lab_strike("trickle=0", PAUSES, 1);
  number--;
  const daemon_t &daemon = daemons[number % std::size(daemons)];
  std::string fault = std::string("daemon=") + daemon.name;
  std::size_t call = number / std::size(daemons);
  if (call == 0) return lab_strike(fault + ",silence", daemon.told);
  return lab_strike(fault + ",call=" + std::to_string(call) + ",times=1,silence", SILENCE);
}

// Outputs: what each place does to a report of some kilobytes.
struct output_t {
  const char *redirection;
  bool must_fail, may_die;
};
constexpr output_t outputs[] = {
    {">/dev/full", true, false},          {">&-", true, false},
    {"</dev/null >&- 2>&-", true, false}, {">/dev/full 2>&1", true, false},
    {"| (exec <&-)", false, true},        {"| head -n 1", false, true},
    {">/dev/null", false, false},         {"<&- >/dev/null", false, false},
};

std::size_t count_outputs(site_t &, std::string &) {
  return std::size(outputs);
}

strike_t make_output(const site_t &, const std::string &, std::size_t number) {
  strike_t strike;
  const output_t &row = outputs[number];
  strike.redirection = row.redirection;
  strike.must_fail = row.must_fail;
  strike.may_die = row.may_die;
  strike.may_differ = !row.must_fail;
  return strike;
}

constexpr scene_t forms[] = {
    {.name = "table", .lab = "", .words = "-a"},
    {.name = "media", .lab = "", .words = "-m"},
    {.name = "times", .lab = "", .words = "-a -p"},
    {.name = "verbose", .lab = "", .words = "-a -v"},
    {.name = "very-verbose", .lab = "", .words = "-a -V"},
    {.name = "bootstraps", .lab = "", .words = "-a -B"},
    {.name = "machines", .lab = "--sample 1:4:21", .words = "-a -k"},
    {.name = "short-listing", .lab = "", .words = "-a -S"},
    {.name = "long-listing", .lab = "", .words = "-a -L"},
    {.name = "summary", .lab = "", .words = "-a -X"},
    {.name = "delimited", .lab = "", .words = "-a -xc;"},
    {.name = "printf", .lab = "", .words = "-a -xp%s\\n -r ssid"},
    {.name = "xml", .lab = "", .words = "-a -xm"},
    {.name = "summary-xml", .lab = "", .words = "-a -X -xm"},
    {.name = "history", .lab = "", .words = "-h"},
    {.name = "volumes", .lab = "", .words = "-O"},
    {.name = "clients", .lab = "", .words = "-C"},
};

// Signals at fifty points of a session.
constexpr std::size_t POINTS = 50;
constexpr int signals[] = {SIGTERM, SIGINT,   SIGHUP,  SIGUSR1, SIGUSR2,
                           SIGSTOP, SIGWINCH, SIGCHLD, SIGPIPE, SIGALRM};

std::size_t count_signals(site_t &, std::string &) {
  return POINTS * std::size(signals);
}

strike_t make_signal(const site_t &site, const std::string &, std::size_t number) {
  strike_t strike;
  strike.signal = signals[number % std::size(signals)];
  strike.delay = site.time() * (number / std::size(signals)) / POINTS;
  strike.may_die =
      strike.signal != SIGSTOP && strike.signal != SIGWINCH && strike.signal != SIGCHLD;
  return strike;
}

constexpr campaign_t rows[] = {
    {"cuts", all_sessions, count_cuts, make_cut, 60, true},
    {"requests", page_sessions, count_request_cuts, make_request_cut, 40, true},
    {"bits", encrypted_session, count_bits, make_bit, 40, true},
    {"allocations", some_sessions, count_allocations, make_allocation, 80, false},
    {"system-calls", some_sessions, count_system_calls, make_system_call, 50, false},
    {"slow", page_sessions, count_slow, make_slow, 10, true},
    {"clock", plain_session, count_clocks, make_clock, 40, false},
    {"outputs", forms, count_outputs, make_output, std::size(outputs), true},
    {"signals", page_sessions, count_signals, make_signal, 40, true},
};

}  // namespace

std::span<const campaign_t> campaigns() {
  return rows;
}

}  // namespace qvr::test
