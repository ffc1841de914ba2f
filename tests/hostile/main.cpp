// Runs campaigns of faulted sessions and holds each against the promise: a status of 0 means that
// the report is whole, anything else is told.
//   hostile --short | --long   a spread of each campaign, or all of it
//     --jobs N                 sessions at a time
//     --only NAME[/SCENE]      this campaign
//     --at N                   this strike of it alone, with its verdict
//     --from N, --step N       of the long form: begins there, and leaves out all but each N-th
//     --seconds N              ends each scene after that time and tells from where to go on
#include <getopt.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstring>
#include <thread>

#include "campaigns.h"

namespace {

using namespace qvr::test;

struct settings_t {
  bool whole = false;
  unsigned jobs = std::max(2u, std::thread::hardware_concurrency() * 2);
  std::string only;
  long at = -1;
  std::size_t from = 0, step = 1;
  std::chrono::seconds time{0};  // 0: as long as it takes
};

// Of one worker, in memory that it shares with its parent.
struct tally_t {
  std::size_t verdicts[5];
  double slowest, waited;  // seconds of a session: real, and skipped
  std::size_t total;       // strikes that the scene has
  std::size_t next;        // the first that was not run
  bool skipped, broken;
};

struct task_t {
  const settings_t &settings;
  const campaign_t &campaign;
  const scene_t &scene;
};

void strike_one(const task_t &task, site_t &site, const std::string &text, std::size_t number,
                tally_t &tally) {
  strike_t strike = task.campaign.make(site, text, number);
  outcome_t outcome = site.strike(strike);
  tally.verdicts[static_cast<int>(outcome.verdict)]++;
  tally.slowest = std::max(tally.slowest, outcome.seconds);
  tally.waited = std::max(tally.waited, outcome.waited);
  if (outcome.verdict != verdict_t::violation && task.settings.at < 0) return;
  std::string line = std::string(task.campaign.name) + '/' + task.scene.name + " --at " +
                     std::to_string(number) + " (" + strike.text() +
                     "): " + (outcome.why.empty() ? "fine" : outcome.why) + "\n";
  std::fputs(line.c_str(), stdout);
  std::fflush(stdout);
}

void work(const task_t &task, unsigned worker, unsigned workers, tally_t &tally) {
  site_t site;
  std::string why, text;
  if (!site.open(task.scene, why)) {
    tally.skipped = true;
    std::printf("skipped: %s\n", why.c_str());
    return;
  }
  if (!site.probe(why)) {
    tally.broken = true;
    std::printf("%s/%s: %s\n", task.campaign.name, task.scene.name, why.c_str());
    return;
  }
  tally.total = task.campaign.count(site, text);
  if (task.settings.at >= 0) {
    if (worker == 0)
      strike_one(task, site, text, static_cast<std::size_t>(task.settings.at), tally);
    return;
  }
  const settings_t &settings = task.settings;
  if (!settings.whole) {
    std::size_t runs = std::min(tally.total, task.campaign.short_runs);
    for (std::size_t i = worker; i < runs; i += workers)
      strike_one(task, site, text, i * tally.total / runs, tally);
    return;
  }
  auto end = std::chrono::steady_clock::now() + settings.time;
  tally.next = settings.from + worker * settings.step;
  for (; tally.next < tally.total; tally.next += workers * settings.step) {
    if (settings.time.count() != 0 && std::chrono::steady_clock::now() >= end) return;
    strike_one(task, site, text, tally.next, tally);
  }
}

// True without a violation.
bool run_scene(const task_t &task) {
  unsigned workers = task.settings.at >= 0 ? 1 : task.settings.jobs;
  std::size_t size = workers * sizeof(tally_t);
  void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  auto *tallies = static_cast<tally_t *>(memory);
  auto start = std::chrono::steady_clock::now();
  std::vector<pid_t> children;
  for (unsigned i = 0; i < workers; i++) {
    std::fflush(stdout);
    pid_t child = fork();
    if (child == 0) {
      work(task, i, workers, tallies[i]);
      std::fflush(stdout);
      std::_Exit(0);
    }
    children.push_back(child);
  }
  tally_t sum{};
  sum.next = SIZE_MAX;
  for (unsigned i = 0; i < workers; i++) {
    int status = 0;
    waitpid(children[i], &status, 0);
    sum.broken |= tallies[i].broken || status != 0;
    sum.skipped |= tallies[i].skipped;
    sum.total = std::max(sum.total, tallies[i].total);
    sum.next = std::min(sum.next, tallies[i].next);
    sum.slowest = std::max(sum.slowest, tallies[i].slowest);
    sum.waited = std::max(sum.waited, tallies[i].waited);
    for (std::size_t v = 0; v < std::size(sum.verdicts); v++)
      sum.verdicts[v] += tallies[i].verdicts[v];
  }
  munmap(memory, size);
  std::size_t sessions = 0;
  for (std::size_t count : sum.verdicts) sessions += count;
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf(
      "%-13s %-16s %6zu of %6zu sessions: %6zu whole, %6zu told, %4zu passed over, %4zu killed, "
      "%zu violations%s; slowest %.1f s, longest wait %.0f s, %.0f s in all\n",
      task.campaign.name, task.scene.name, sessions, sum.total, sum.verdicts[0], sum.verdicts[1],
      sum.verdicts[2], sum.verdicts[3], sum.verdicts[4], sum.broken ? ", broken" : "", sum.slowest,
      sum.waited, seconds);
  if (task.settings.whole && sum.next < sum.total) std::printf("to go on: --from %zu\n", sum.next);
  std::fflush(stdout);
  return sum.skipped || (!sum.broken && sum.verdicts[4] == 0 && sessions > 0);
}

bool is_wanted(const settings_t &settings, const campaign_t &campaign, const scene_t &scene) {
#ifdef HOSTILE_SANITIZED
  if (!campaign.on_sanitized) return false;
#endif
  return settings.only.empty() || settings.only == campaign.name ||
         settings.only == std::string(campaign.name) + '/' + scene.name;
}

bool read_settings(int argc, char **argv, settings_t &settings) {
  static constexpr option options[] = {{"short", no_argument, nullptr, 's'},
                                       {"long", no_argument, nullptr, 'l'},
                                       {"jobs", required_argument, nullptr, 'j'},
                                       {"only", required_argument, nullptr, 'o'},
                                       {"at", required_argument, nullptr, 'a'},
                                       {"from", required_argument, nullptr, 'f'},
                                       {"step", required_argument, nullptr, 'e'},
                                       {"seconds", required_argument, nullptr, 't'},
                                       {nullptr, 0, nullptr, 0}};
  for (int key; (key = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    switch (key) {
      case 's':
        settings.whole = false;
        break;
      case 'l':
        settings.whole = true;
        break;
      case 'j':
        settings.jobs = std::max(1u, static_cast<unsigned>(std::atoi(optarg)));
        break;
      case 'o':
        settings.only = optarg;
        break;
      case 'a':
        settings.at = std::atol(optarg);
        break;
      case 'f':
        settings.from = std::strtoul(optarg, nullptr, 10);
        break;
      case 'e':
        settings.step = std::max(1ul, std::strtoul(optarg, nullptr, 10));
        break;
      case 't':
        settings.time = std::chrono::seconds(std::atol(optarg));
        break;
      default:
        return false;
    }
  }
  return optind == argc;
}

}  // namespace

int main(int argc, char **argv) {
  settings_t settings;
  if (!read_settings(argc, argv, settings)) return 2;
  bool good = true;
  for (const campaign_t &campaign : campaigns()) {
    for (const scene_t &scene : campaign.scenes) {
      if (is_wanted(settings, campaign, scene)) good &= run_scene({settings, campaign, scene});
    }
  }
  return good ? 0 : 1;
}
