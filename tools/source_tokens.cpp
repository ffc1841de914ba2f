#include "source_tokens.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace qvr {

namespace {

bool is_word(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool is_digit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

class tokenizer {
 public:
  explicit tokenizer(std::string_view source) : rest_(source) {}

  std::vector<source_token_t> run() {
    while (!rest_.empty()) step();
    return std::move(tokens_);
  }

 private:
  void step() {
    char c = rest_.front();
    if (std::isspace(static_cast<unsigned char>(c)) != 0) {
      take(1);
    } else if (rest_.starts_with("//")) {
      comment(std::min(rest_.find('\n'), rest_.size()));
    } else if (rest_.starts_with("/*")) {
      std::size_t end = rest_.find("*/", 2);
      comment(end == std::string_view::npos ? rest_.size() : end + 2);
    } else if (raw_prefix() != 0) {
      raw_text(raw_prefix());
    } else if (c == '"' || (rest_.starts_with("u8\""))) {
      if (c != '"') take(2);
      plain_text();
    } else if (c == '\'') {
      character();
    } else if (is_digit(c)) {
      number();
    } else if (is_word(c)) {
      add(source_token_kind::word, take(word_length()));
    } else {
      add(source_token_kind::mark, take(1));
    }
  }

  std::string_view take(std::size_t size) {
    std::string_view taken = rest_.substr(0, size);
    line_ += static_cast<int>(std::count(taken.begin(), taken.end(), '\n'));
    rest_.remove_prefix(taken.size());
    return taken;
  }

  source_token_t *add(source_token_kind kind, std::string_view text) {
    if (off_) return nullptr;
    tokens_.push_back({kind, std::string(text), 0, line_});
    return &tokens_.back();
  }

  void comment(std::size_t size) {
    std::string_view text = take(size);
    if (text.find("messages off") != std::string_view::npos) off_ = true;
    if (text.find("messages on") != std::string_view::npos) off_ = false;
  }

  std::size_t word_length() const {
    std::size_t size = 0;
    while (size < rest_.size() && is_word(rest_[size])) size++;
    return size;
  }

  // The length of a raw literal's prefix through its quote; 0 when none stands here.
  std::size_t raw_prefix() const {
    for (std::string_view prefix : {"R\"", "u8R\""}) {
      if (rest_.starts_with(prefix)) return prefix.size();
    }
    return 0;
  }

  void add_text(std::string value) {
    if (off_) return;
    if (!tokens_.empty() && tokens_.back().kind == source_token_kind::text) {
      tokens_.back().text += value;
    } else {
      add(source_token_kind::text, value);
    }
  }

  void raw_text(std::size_t prefix) {
    take(prefix);
    std::size_t open = std::min(rest_.find('('), rest_.size());
    std::string close = ")" + std::string(take(open)) + "\"";
    take(1);
    std::size_t end = std::min(rest_.find(close), rest_.size());
    add_text(std::string(take(end)));
    take(close.size());
  }

  void plain_text() {
    take(1);
    std::string value;
    while (!rest_.empty() && rest_.front() != '"') {
      if (rest_.front() == '\\') {
        escape(value);
      } else {
        value += take(1);
      }
    }
    take(1);
    add_text(std::move(value));
  }

  void escape(std::string &value) {
    constexpr std::string_view letters = "ntrabfv0", values = "\n\t\r\a\b\f\v";
    take(1);
    if (rest_.empty()) return;
    char c = rest_.front();
    if (c == 'x') {
      take(1);
      std::size_t size = 0;
      while (size < rest_.size() && std::isxdigit(static_cast<unsigned char>(rest_[size]))) size++;
      value += static_cast<char>(std::strtoul(std::string(take(size)).c_str(), nullptr, 16));
    } else if (c >= '0' && c <= '7') {
      std::size_t size = 0;
      while (size < 3 && size < rest_.size() && rest_[size] >= '0' && rest_[size] <= '7') size++;
      value += static_cast<char>(std::strtoul(std::string(take(size)).c_str(), nullptr, 8));
    } else {
      std::size_t at = letters.find(c);
      std::string_view taken = take(1);
      if (at < values.size()) {
        value += values[at];
      } else if (c != '\n') {
        value += taken;
      }
    }
  }

  void character() {
    take(1);
    while (!rest_.empty() && rest_.front() != '\'') take(rest_.front() == '\\' ? 2 : 1);
    take(1);
    add(source_token_kind::mark, "'");
  }

  void number() {
    std::size_t size = 0;
    while (size < rest_.size() &&
           (is_word(rest_[size]) || rest_[size] == '.' ||
            (rest_[size] == '\'' && size + 1 < rest_.size() && is_word(rest_[size + 1])))) {
      size++;
    }
    std::string digits(take(size));
    std::erase(digits, '\'');
    source_token_t *token = add(source_token_kind::number, digits);
    if (token == nullptr) return;
    bool whole = std::all_of(digits.begin(), digits.end(), is_digit);
    token->number = whole ? std::strtoll(digits.c_str(), nullptr, 10) : -1;
  }

  std::string_view rest_;
  std::vector<source_token_t> tokens_;
  int line_ = 1;
  bool off_ = false;
};

}  // namespace

std::vector<source_token_t> source_tokens(std::string_view source) {
  return tokenizer(source).run();
}

}  // namespace qvr
