// The text of one cell while it is made.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

#include "copy_short.h"

namespace qvr {

// Writes to the caller's buffer and cuts in silence at its room, which counts the NUL that
// always ends the text.
class cell_text {
 public:
  cell_text(char *buffer, std::size_t room) : start_(buffer), room_(room) { terminate(); }

  void add(std::string_view text) {
    std::size_t count = text.size() < left() ? text.size() : left();
    if (count == 0) return;
    copy_short(start_ + size_, text.data(), count);
    size_ += count;
    terminate();
  }
  void add(char c) {
    if (left() == 0) return;
    start_[size_++] = c;
    terminate();
  }
  void add_u64(std::uint64_t value) { add_number(value); }
  void add_i64(std::int64_t value) { add_number(value); }

  // Bytes that still fit.
  std::size_t left() const { return room_ == 0 ? 0 : room_ - 1 - size_; }
  std::size_t size() const { return size_; }
  std::string_view text() const { return {start_, size_}; }
  // Makes `mark` the end of the text, in the place of the last byte when nothing fits behind it.
  void end_with(char mark) {
    if (left() == 0 && size_ > 0) size_--;
    add(mark);
  }

 private:
  static constexpr std::size_t DIGITS_MAX = 24;

  template <class Number>
  void add_number(Number value) {
    if (left() >= DIGITS_MAX) {
      char *end = std::to_chars(start_ + size_, start_ + size_ + DIGITS_MAX, value).ptr;
      size_ = static_cast<std::size_t>(end - start_);
      return terminate();
    }
    char digits[DIGITS_MAX];
    char *end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
  }
  void terminate() {
    if (room_ > 0) start_[size_] = '\0';
  }

  char *start_;
  std::size_t room_;
  std::size_t size_ = 0;
};

}  // namespace qvr
