// Figures of a comparison, and the table that tells them.
#pragma once

#include <string>
#include <vector>

namespace qvr::bench {

enum class bound_t { at_most, at_least };

// One figure, measured once a repetition, beside its target.
struct figure_t {
  std::string what;
  std::string unit;   // empty for a ratio
  double target = 0;  // 0: told, not held to anything
  bound_t bound = bound_t::at_most;
  std::vector<double> values;
  std::string of;  // what it is made of, for a reader
};

double median(std::vector<double> values);
// By how much the median misses the target: 1 is on it, 2 twice as bad; 0 without a target.
double miss(const figure_t &figure);
// The same of the best repetition, which other load on the machine disturbed least.
double least_miss(const figure_t &figure);

// The table in Markdown: median, lowest and highest value, target.
std::string table_text(const std::vector<figure_t> &figures);
// Replaces what stands between the two marks of the table in a file; false when there are none.
bool write_table(const std::string &file, const std::string &table);

}  // namespace qvr::bench
