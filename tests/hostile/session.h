// One run of the command under one fault, and what is to be said of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "installation.h"
#include "netns.h"
#include "run_command.h"

namespace qvr::test {

// What is asked, of which server.
struct scene_t {
  const char *name;
  const char *lab;    // options of the lab, as words
  const char *words;  // of the command; "~" stands for a blank
  // Volumes may be passed over, which debug lines tell: the rest is whole. Lines begin with the
  // volume's identifier when the lost lines can be told, else the figures are not looked at.
  enum class losses_t { none, by_volume, figures } losses = losses_t::none;
  bool encrypted = false;  // nothing is to be said in clear
};

// One fault.
struct strike_t {
  std::string lab_fault;             // empty: none
  std::vector<std::string> env;      // of the command
  std::vector<std::string> wrapper;  // a program that runs the command
  std::string redirection;           // of the command, by a shell
  int signal = 0;                    // sent `delay` after the start
  std::chrono::microseconds delay{0};
  std::chrono::seconds limit{120};  // a longer run hangs
  // Of what the command waits, by its own clock, which the shim moves: more than is told hangs as
  // well. 0: its waits are real.
  std::chrono::seconds told{0};
  bool may_die = false;     // by that signal, or by a reader that left
  bool may_differ = false;  // where the output goes nobody sees
  bool must_fail = false;

  std::string text() const;
};

enum class verdict_t { whole, told, passed_over, killed, violation };

struct outcome_t {
  verdict_t verdict = verdict_t::violation;
  std::string why;  // of a violation
  double seconds = 0;
  double waited = 0;  // seconds, by the command's own clock
};

struct shim_counts_t {
  std::size_t allocations = 0, looks = 0, waited_ms = 0;
};

// A private host with a lab on it, in this process and its threads from then on.
class site_t {
 public:
  // False when it cannot be had; `why` then says so.
  bool open(const scene_t &scene, std::string &why);
  // The report without faults. False when it is not a report, or not the same twice.
  bool probe(std::string &why);

  command_result run(const strike_t &strike);
  // The same with the figures that the shim wrote at the end: allocations, looks at the clock, and
  // milliseconds of skipped waits. Zeros when it could not.
  command_result run(const strike_t &strike, shim_counts_t &counts);
  outcome_t strike(const strike_t &strike);

  const scene_t &scene() const { return *scene_; }
  std::uint64_t bytes() const { return bytes_; }  // of replies, of a whole session
  std::uint64_t request_bytes() const { return request_bytes_; }
  std::chrono::microseconds time() const { return time_; }  // of a whole session

 private:
  verdict_t judge(const strike_t &strike, const command_result &result, std::string &why) const;
  bool lost_volumes_only(const command_result &result) const;
  // Where encryption is demanded, damage on the network gets nothing said outside of the channel.
  // When a service of this host was struck first, or the command itself, it may not know the
  // demand.
  bool asked_in_clear() const;

  const scene_t *scene_ = nullptr;
  std::unique_ptr<private_host> host_;
  std::unique_ptr<lab_installation> lab_;
  command_result whole_;
  std::uint64_t bytes_ = 0, request_bytes_ = 0;
  std::uint64_t in_clear_ = 0;  // of calls, before the last run
  std::chrono::microseconds time_{0};
};

// Words of a line: blanks separate them, "~" stands for a blank inside one.
std::vector<std::string> words_of_line(std::string_view line);

}  // namespace qvr::test
