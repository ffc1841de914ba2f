// The comparison: the command and its yardsticks in turn, on the same records, in one run.
#pragma once

#include <string>
#include <vector>

#include "figures.h"

namespace qvr::bench {

struct comparison_size_t {
  unsigned savesets = 1000000;
  unsigned repetitions = 5;
  unsigned starts = 41;  // of runs that take milliseconds
  bool whole = true;     // false: without what takes long
};

// Runs it all, with files in `directory`. The process must be in a network of its own.
std::vector<figure_t> compare(const comparison_size_t &size, const std::string &directory);

}  // namespace qvr::bench
