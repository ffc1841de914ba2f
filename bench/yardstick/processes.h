// Programs that are measured: run to their end, or in the background while others are.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace qvr::bench {

// What a run cost. Seconds; `cpu` is user and system time of all its threads.
struct run_cost_t {
  double wall = 0, cpu = 0;
  double peak = 0;  // bytes of resident memory at most
  int status = -1;
};

// The program of this build that lies beside this one.
std::string beside(const std::string &name);

// Runs a program to its end; its output goes to the file `out`. Its errors go where ours go.
run_cost_t run(const std::vector<std::string> &argv, const std::string &out = "/dev/null");
// The same, with what it printed.
std::string output_of(const std::vector<std::string> &argv);

// A lab in the background, ready when made; ends with the object. Ends this program when it does
// not start.
class lab_t {
 public:
  explicit lab_t(std::vector<std::string> options);
  ~lab_t();
  lab_t(const lab_t &) = delete;
  lab_t &operator=(const lab_t &) = delete;

 private:
  pid_t pid_ = -1;
};

// Prints why and ends this program with status 2.
[[noreturn]] void give_up(const std::string &why);

}  // namespace qvr::bench
