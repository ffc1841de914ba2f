// Finds the messages of sources: an id and an English text that stand in one call or one constant
// row.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "source_tokens.h"

namespace qvr {

struct found_message_t {
  std::string text;
  std::string file;
  int line = 0;
};

class message_scan {
 public:
  // Takes the names that a source gives to numbers (constants and enumerators): an id may be named.
  // To be called for all sources before the first call of add.
  void learn(const std::vector<source_token_t> &tokens);
  void add(const std::string &file, const std::vector<source_token_t> &tokens);

  // In the order of ids. Two texts under one id stand in the order in which they were found.
  const std::map<std::int32_t, std::vector<found_message_t>> &messages() const { return messages_; }

 private:
  // One element of a call or row: a lone number (named: by a constant) or a lone text.
  struct element_t {
    std::int64_t number = -1;
    const source_token_t *text = nullptr;
    bool named = false;
  };

  element_t read_element(const source_token_t *first, const source_token_t *last) const;
  std::vector<element_t> read_group(const std::vector<source_token_t> &tokens,
                                    std::size_t open) const;
  void scan_group(const std::string &file, const std::vector<source_token_t> &tokens,
                  std::size_t open);
  void scan_call(const std::string &file, const std::vector<element_t> &elements);
  void scan_row(const std::string &file, const std::vector<element_t> &elements);
  void take(std::int64_t id, const source_token_t &text, const std::string &file);

  std::map<std::string, std::int64_t, std::less<>> named_;
  std::map<std::int32_t, std::vector<found_message_t>> messages_;
};

}  // namespace qvr
