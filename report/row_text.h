// What a row prints, while it is composed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "copy_short.h"

namespace qvr {

// A text that grows at its end; its memory stays for the next row. Throws std::bad_alloc when there
// is none, and then holds what it held.
class row_text {
 public:
  row_text &append(std::string_view text) {
    if (text.size() > room_ - size_) grow(text.size());
    copy_short(bytes_.get() + size_, text.data(), text.size());
    size_ += text.size();
    return *this;
  }
  row_text &append(char c) {
    if (size_ == room_) grow(1);
    bytes_[size_++] = c;
    return *this;
  }
  row_text &append(std::size_t count, char c) {
    if (count > room_ - size_) grow(count);
    std::memset(bytes_.get() + size_, c, count);
    size_ += count;
    return *this;
  }

  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  std::string_view text() const { return {bytes_.get(), size_}; }
  // Back to the first `size` bytes.
  void cut(std::size_t size) { size_ = std::min(size_, size); }
  void clear() { size_ = 0; }

 private:
  void grow(std::size_t more);

  static constexpr std::size_t FIRST_ROOM = 4096;
  std::size_t size_ = 0, room_ = FIRST_ROOM;
  std::unique_ptr<char[]> bytes_ = std::make_unique_for_overwrite<char[]>(FIRST_ROOM);
};

}  // namespace qvr
