// Queries by chance: the words of a command line and what they mean, side by side.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "slow_model.h"

namespace qvr::test {

struct made_query {
  std::vector<std::string> words;  // -a, -q ..., -A ...
  slow_query meaning;

  bool speaks_of_save_sets() const;  // by a constraint, not by -A alone
};

class query_maker {
 public:
  query_maker(const slow_catalogue &catalogue, std::uint32_t seed)
      : catalogue_(catalogue), random_(seed) {}

  made_query make();

  std::size_t below(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
  }

 private:
  struct field_row;
  static const std::vector<field_row> &fields();

  bool one_in(std::size_t count) { return below(count) == 0; }
  void add(const field_row &row, made_query &query);
  void add_bounds(const field_row &row, made_query &query);
  void add_texts(const field_row &row, made_query &query);
  void add_ssattr(made_query &query);
  void add_attr(made_query &query);
  // A value that some record has.
  bool value_of(const field_row &row, std::int64_t &value);
  bool text_of(const field_row &row, std::string &text);
  const slow_save_set &any_save_set() {
    return catalogue_.save_sets[below(catalogue_.save_sets.size())];
  }
  const slow_volume &any_volume() { return catalogue_.volumes[below(catalogue_.volumes.size())]; }

  const slow_catalogue &catalogue_;
  std::mt19937 random_;
};

}  // namespace qvr::test
