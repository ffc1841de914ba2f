// A bump allocator for records that come and go together.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace qvr {

// Memory is taken in blocks, the first ones small, and released at once by the destructor. Objects
// made here must need no destructor. One thread at a time.
class arena {
 public:
  arena() = default;
  arena(const arena &) = delete;
  arena &operator=(const arena &) = delete;

  void *take(std::size_t size, std::size_t align) {
    auto at = (reinterpret_cast<std::uintptr_t>(next_) + align - 1) & ~(align - 1);
    auto *start = reinterpret_cast<std::byte *>(at);
    if (next_ == nullptr || start > end_ || static_cast<std::size_t>(end_ - start) < size) {
      start = new_block(size, align);
    }
    next_ = start + size;
    return start;
  }

  template <class T>
  T *make() {
    static_assert(std::is_trivially_destructible_v<T>);
    return new (take(sizeof(T), alignof(T))) T();
  }

  template <class T>
  std::span<T> make_array(std::size_t count) {
    static_assert(std::is_trivially_destructible_v<T>);
    if (count == 0) return {};
    auto *first = static_cast<T *>(take(count * sizeof(T), alignof(T)));
    for (std::size_t i = 0; i < count; i++) new (first + i) T();
    return {first, count};
  }

  // A copy of the text that lives as long as the arena; a NUL follows it.
  std::string_view copy(std::string_view text) {
    auto *to = static_cast<char *>(take(text.size() + 1, 1));
    if (!text.empty()) std::memcpy(to, text.data(), text.size());
    to[text.size()] = '\0';
    return {to, text.size()};
  }

  // Bytes of memory held, for bounds and measurements.
  std::size_t held() const { return held_; }

 private:
  struct release_t {
    bool pooled = false;
    void operator()(std::byte *block) const;
  };
  using block_t = std::unique_ptr<std::byte[], release_t>;

  // Room of that size at the start of a new block.
  std::byte *new_block(std::size_t size, std::size_t align);

  std::vector<block_t> blocks_;
  std::byte *next_ = nullptr;
  std::byte *end_ = nullptr;
  std::size_t held_ = 0;
};

}  // namespace qvr
