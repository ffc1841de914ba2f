// Sorting by several keys of an item at once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace qvr {

using keys_t = std::vector<std::uint64_t>;

// Columns of keys, most significant first, packed into as few words an item as their ranges need.
class packed_keys {
 public:
  explicit packed_keys(std::size_t count) : count_(count) {}

  void add(const keys_t &keys) {
    auto [low, high] = std::minmax_element(keys.begin(), keys.end());
    std::uint64_t range = *high - *low;
    if (range == 0) return;
    int bits = 64 - __builtin_clzll(range);
    if (words_.empty() || free_bits_ < bits) {
      words_.emplace_back(count_);
      free_bits_ = 64;
    }
    free_bits_ -= bits;
    keys_t &word = words_.back();
    for (std::size_t i = 0; i < count_; i++) word[i] |= (keys[i] - *low) << free_bits_;
  }

  std::vector<std::uint32_t> sorted(bool reversed) {
    std::vector<std::uint32_t> order(count_);
    std::iota(order.begin(), order.end(), 0u);
    if (words_.empty()) return order;
    if (reversed) {
      for (keys_t &word : words_) {
        for (std::uint64_t &key : word) key = ~key;
      }
    }
    entries_t entries(count_);
    for (std::size_t i = 0; i < count_; i++) {
      entries[i] = {words_[0][i], static_cast<std::uint32_t>(i)};
    }
    if (count_ < BY_DIGITS) {
      sort_part(entries.begin(), entries.end());
    } else {
      sort_by_digits(entries);
      if (words_.size() > 1) sort_runs(entries);
    }
    for (std::size_t i = 0; i < count_; i++) order[i] = entries[i].place;
    return order;
  }

 private:
  struct entry_t {
    std::uint64_t word;
    std::uint32_t place;
  };

  using entries_t = std::vector<entry_t>;

  static constexpr std::size_t BY_DIGITS = 4096;  // items from which on digits pay
  static constexpr int DIGIT = 11;                // bits

  void sort_part(entries_t::iterator from, entries_t::iterator to) const {
    std::sort(from, to, [this](const entry_t &a, const entry_t &b) { return before(a, b); });
  }

  // By the first word alone, digit by digit from the lowest; entries of one word keep their order.
  static void sort_by_digits(entries_t &entries) {
    entries_t other(entries.size());
    std::vector<std::size_t> ends(std::size_t{1} << DIGIT);
    for (int shift = 0; shift < 64; shift += DIGIT) {
      auto digit = [shift](const entry_t &entry) {
        return entry.word >> shift & ((std::size_t{1} << DIGIT) - 1);
      };
      std::fill(ends.begin(), ends.end(), 0);
      for (const entry_t &entry : entries) ends[digit(entry)]++;
      if (ends[digit(entries.front())] == entries.size()) continue;
      std::exclusive_scan(ends.begin(), ends.end(), ends.begin(), std::size_t{0});
      for (const entry_t &entry : entries) other[ends[digit(entry)]++] = entry;
      entries.swap(other);
    }
  }

  // What the first word leaves equal.
  void sort_runs(entries_t &entries) const {
    for (auto from = entries.begin(); from != entries.end();) {
      auto to = std::find_if(from, entries.end(),
                             [from](const entry_t &entry) { return entry.word != from->word; });
      if (to - from > 1) sort_part(from, to);
      from = to;
    }
  }

  // The place decides last, which makes the sort stable.
  bool before(const entry_t &a, const entry_t &b) const {
    if (a.word != b.word) return a.word < b.word;
    for (std::size_t w = 1; w < words_.size(); w++) {
      if (words_[w][a.place] != words_[w][b.place]) return words_[w][a.place] < words_[w][b.place];
    }
    return a.place < b.place;
  }

  std::size_t count_;
  std::vector<keys_t> words_;
  int free_bits_ = 0;
};

}  // namespace qvr
