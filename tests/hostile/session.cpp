#include "session.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace qvr::test {

namespace {

using clock_type = std::chrono::steady_clock;

// What is said on the error stream beside debug lines.
std::string messages_of(const std::string &err) {
  std::istringstream lines(err);
  std::string messages;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("reelscan-D") == line.npos && !line.starts_with("hostile:"))
      messages += line + '\n';
  }
  return messages;
}

// The identifiers that stand in quotes on debug lines of passed volumes.
std::vector<std::string> passed_volumes(const std::string &err) {
  std::istringstream lines(err);
  std::vector<std::string> volumes;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("passed over") == line.npos) continue;
    std::size_t from = line.find('\''), to = line.find('\'', from + 1);
    if (to != line.npos) volumes.push_back(line.substr(from + 1, to - from - 1));
  }
  return volumes;
}

std::string shown(const std::string &text) {
  return text.size() <= 300 ? text : text.substr(0, 150) + " ... " + text.substr(text.size() - 150);
}

}  // namespace

std::vector<std::string> words_of_line(std::string_view line) {
  std::istringstream in{std::string(line)};
  std::vector<std::string> words;
  for (std::string word; in >> word; words.push_back(word)) {
    for (char &c : word) c = c == '~' ? ' ' : c;
  }
  return words;
}

std::string strike_t::text() const {
  std::string all = lab_fault;
  for (const std::string &part : env) all += ' ' + part;
  for (const std::string &part : wrapper) all += ' ' + part;
  if (!redirection.empty()) all += ' ' + redirection;
  if (signal != 0)
    all += " signal " + std::to_string(signal) + " after " + std::to_string(delay.count()) + " us";
  return all;
}

bool site_t::open(const scene_t &scene, std::string &why) {
  scene_ = &scene;
  host_ = private_host::make(why);
  if (!host_) return false;
  if (!host_->enter()) {
    why = "cannot enter the private host";
    return false;
  }
  std::vector<std::string> words = {"qvrlabd", "--sample", "1:2:2", "--now", "1795000000"};
  for (std::string &word : words_of_line(scene.lab)) words.push_back(std::move(word));
  if (const char *file = std::getenv("HOSTILE_SHOW")) {
    words.insert(words.end(), {"--log", std::string(file) + ".calls"});
  }
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  lab_options options;
  int status = 0;
  optind = 0;
  if (!parse_lab_options(static_cast<int>(words.size()), argv.data(), options, status)) {
    why = "bad options of the lab";
    return false;
  }
  lab_ = std::make_unique<lab_installation>();
  return lab_->start(options, why);
}

bool site_t::probe(std::string &why) {
  std::string first;
  for (int turn = 0; turn < 2; turn++) {
    lab_installation::traffic_t before = lab_->traffic();
    clock_type::time_point start = clock_type::now();
    whole_ = run({});
    time_ = std::chrono::duration_cast<std::chrono::microseconds>(clock_type::now() - start);
    bytes_ = lab_->traffic().replies - before.replies;
    request_bytes_ = lab_->traffic().requests - before.requests;
    if (whole_.status != 0 || whole_.out.empty() || (turn > 0 && whole_.out != first)) {
      why = "no whole report without a fault: " + whole_.err;
      return false;
    }
    first = whole_.out;
  }
  return true;
}

command_result site_t::run(const strike_t &strike) {
  std::vector<lab_fault> faults;
  if (!strike.lab_fault.empty()) {
    std::string why;
    if (auto fault = parse_fault(strike.lab_fault, why)) faults.push_back(*fault);
  }
  lab_->set_faults(std::move(faults));
  in_clear_ = lab_->traffic().in_clear;
  std::vector<std::string> argv = strike.wrapper;
  if (!strike.redirection.empty()) {
    argv.insert(argv.end(), {"sh", "-c", "\"$0\" \"$@\" " + strike.redirection});
  }
  argv.push_back(built_program("reelscan"));
  for (std::string &word : words_of_line(scene_->words)) argv.push_back(std::move(word));
  command_options options;
  options.env.insert(options.env.end(), strike.env.begin(), strike.env.end());
  background_command command(argv, options);
  if (strike.signal != 0) {
    usleep(static_cast<useconds_t>(strike.delay.count()));
    kill(command.pid(), strike.signal);
    if (strike.signal == SIGSTOP) {
      usleep(2000);
      kill(command.pid(), SIGCONT);
    }
  }
  return command.finish(strike.limit);
}

command_result site_t::run(const strike_t &strike, shim_counts_t &counts) {
  std::string file = "/tmp/hostile-" + std::to_string(getpid());
  strike_t counted = strike;
  counted.env.push_back("HOSTILE_COUNT=" + file);
  command_result result = run(counted);
  counts = {};
  std::ifstream(file) >> counts.allocations >> counts.looks >> counts.waited_ms;
  std::remove(file.c_str());
  return result;
}

bool site_t::lost_volumes_only(const command_result &result) const {
  std::vector<std::string> lost = passed_volumes(result.err);
  if (lost.empty()) return false;
  if (scene_->losses == scene_t::losses_t::figures) return true;
  std::istringstream lines(whole_.out);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    std::string volume = line.substr(0, line.find(';'));
    if (std::find(lost.begin(), lost.end(), volume) == lost.end()) rest += line + '\n';
  }
  return result.out == rest;
}

bool site_t::asked_in_clear() const {
  if (!scene_->encrypted || lab_->traffic().in_clear == in_clear_) return false;
  std::string struck = lab_->first_struck();
  return !struck.empty() && struck != "qvrexecd" && struck != "pmap";
}

verdict_t site_t::judge(const strike_t &strike, const command_result &result,
                        std::string &why) const {
  if (result.timed_out) {
    why = "hangs";
    return verdict_t::violation;
  }
  if (asked_in_clear()) {
    why = "asks in clear";
    return verdict_t::violation;
  }
  std::string messages = messages_of(result.err);
  if (result.status == 0) {
    if (strike.must_fail) {
      why = "succeeds";
    } else if (strike.may_differ || result.out == whole_.out) {
      return verdict_t::whole;
    } else if (scene_->losses != scene_t::losses_t::none && lost_volumes_only(result)) {
      return verdict_t::passed_over;
    } else {
      why = "status 0 of a report that is not whole";
    }
    return verdict_t::violation;
  }
  if (strike.may_die && (result.status == 128 + strike.signal || result.status == 128 + SIGPIPE))
    return verdict_t::killed;
  bool library = result.err.find("hostile: the C library") != std::string::npos;
  if (library && (result.status == 128 + SIGSEGV || result.status == 128 + SIGABRT))
    return verdict_t::killed;
  // The loader has a status of its own for what it cannot load.
  bool loader = result.status == 127;
  if (result.status != 1 && result.status != 2 && !loader) {
    why = "status " + std::to_string(result.status);
    return verdict_t::violation;
  }
  if (messages.empty() && strike.redirection.find("2>") == std::string::npos) {
    why = "fails without a word";
    return verdict_t::violation;
  }
  return verdict_t::told;
}

outcome_t site_t::strike(const strike_t &strike) {
  clock_type::time_point start = clock_type::now();
  shim_counts_t counts;
  command_result result = strike.told.count() != 0 ? run(strike, counts) : run(strike);
  outcome_t outcome;
  outcome.seconds = std::chrono::duration<double>(clock_type::now() - start).count();
  outcome.waited = static_cast<double>(counts.waited_ms) / 1000;
  outcome.verdict = judge(strike, result, outcome.why);
  if (outcome.waited > std::chrono::duration<double>(strike.told).count()) {
    outcome.verdict = verdict_t::violation;
    outcome.why = "waits " + std::to_string(outcome.waited) + " s";
  }
  if (outcome.verdict == verdict_t::violation) {
    outcome.why += "; status " + std::to_string(result.status) + ", " +
                   std::to_string(result.out.size()) + " of " + std::to_string(whole_.out.size()) +
                   " bytes; says: " + shown(result.err);
  }
  // For a look at one strike by itself.
  if (const char *file = std::getenv("HOSTILE_SHOW"))
    std::ofstream(file) << whole_.out << "==\n" << result.out << "==\n" << result.err;
  return outcome;
}

}  // namespace qvr::test
