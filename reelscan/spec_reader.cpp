#include "spec_reader.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "msg.h"

namespace qvr {

std::string_view spec_reader::take_until(std::string_view stops, std::size_t from) {
  std::string_view taken = rest_.substr(0, rest_.find_first_of(stops, from));
  rest_.remove_prefix(taken.size());
  return taken;
}

std::string_view spec_reader::take_digits() {
  std::string_view taken = rest_.substr(0, rest_.find_first_not_of("0123456789"));
  rest_.remove_prefix(taken.size());
  return taken;
}

bool spec_reader::take_text(std::string &value) {
  value.clear();
  char quote = peek();
  if (quote != '"' && quote != '\'') {
    value = trim_blanks(take_until(","));
    return true;
  }
  skip();
  for (;;) {
    value += take_until({&quote, 1});
    if (!take(quote)) return false;
    if (!take(quote)) break;
    value += quote;
  }
  skip_blanks();
  return at_separator();
}

std::string_view trim_blanks(std::string_view text) {
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

bool same_word(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool begins_with_word(std::string_view text, std::string_view prefix) {
  return same_word(text.substr(0, prefix.size()), prefix);
}

bool holds_word(std::string_view text, std::string_view word) {
  for (std::size_t at = 0; at + word.size() <= text.size(); at++) {
    if (begins_with_word(text.substr(at), word)) return true;
  }
  return false;
}

bool number_of(std::string_view digits, std::uint64_t most, std::uint64_t &value) {
  const char *end = digits.data() + digits.size();
  auto [at, error] = std::from_chars(digits.data(), end, value);
  return error == std::errc() && at == end && value <= most;
}

const char *spec_error(std::int32_t id, const char *format, msg_pairs args) {
  static std::array<char, 130> text;
  const char *rendered = msg_text(id, nullptr, format, args);
  std::size_t size = std::min(std::strlen(rendered), text.size() - 1);
  std::memcpy(text.data(), rendered, size);
  text[size] = '\0';
  return text.data();
}

}  // namespace qvr
