// A C++ source as a row of tokens: just enough to find texts beside numbers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

enum class source_token_kind { number, text, word, mark };

struct source_token_t {
  source_token_kind kind = source_token_kind::mark;
  std::string text;         // of a text its value, adjacent literals joined; else as it stands
  std::int64_t number = 0;  // of a number; -1 when it is no whole number
  int line = 0;
};

// Comments and character literals are left out. What lies between the comments "messages off" and
// "messages on" is left out as well.
std::vector<source_token_t> source_tokens(std::string_view source);

}  // namespace qvr
