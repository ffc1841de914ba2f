// The tokenizer that the query, report and attribute languages share.
//
// A specification is a list of terms separated by commas. A blank is the blank character only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "errobj.h"

namespace qvr {

class spec_reader {
 public:
  explicit spec_reader(std::string_view text) : rest_(text) {}

  bool at_end() const { return rest_.empty(); }
  bool at_separator() const { return rest_.empty() || rest_.front() == ','; }
  // The next character, or NUL at the end.
  char peek() const { return rest_.empty() ? '\0' : rest_.front(); }
  std::string_view rest() const { return rest_; }

  void skip(std::size_t count = 1) {
    rest_.remove_prefix(count < rest_.size() ? count : rest_.size());
  }
  void skip_blanks() {
    while (peek() == ' ') rest_.remove_prefix(1);
  }
  // Skips the character if it is the next one.
  bool take(char c) {
    if (rest_.empty() || rest_.front() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  // What stands before the first of the characters at or behind `from`, or before the end.
  std::string_view take_until(std::string_view stops, std::size_t from = 0);
  // The decimal digits that stand next; empty when there are none.
  std::string_view take_digits();

  // A text value: in single or double quotes, a doubled quote inside standing for one, or plain up
  // to the next comma with its trailing blanks cut. False when the end quote is missing or
  // something else than a comma or the end follows.
  bool take_text(std::string &value);

 private:
  std::string_view rest_;
};

// The text without its trailing blanks.
std::string_view trim_blanks(std::string_view text);
// Equal without regard to the case of ASCII letters.
bool same_word(std::string_view a, std::string_view b);
// True when `text` begins with the lower-case `prefix`, in any case.
bool begins_with_word(std::string_view text, std::string_view prefix);
// True when the lower-case `word` stands anywhere in the text, in any case.
bool holds_word(std::string_view text, std::string_view word);
// Decimal digits as a number of at most `most`; false for other characters, none, or more.
bool number_of(std::string_view digits, std::uint64_t most, std::uint64_t &value);

// The text of a refusal, translated, at most 129 bytes and a NUL. It stands until the next refusal.
// Main thread.
const char *spec_error(std::int32_t id, const char *format, msg_pairs args);

}  // namespace qvr
