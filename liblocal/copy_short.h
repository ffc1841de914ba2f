// Copying of texts that are a few bytes as a rule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qvr {

// As memcpy. A call of it costs more than copying a cell's text in place does.
inline void copy_short(char *to, const char *from, std::size_t size) {
  auto both_ends = [&](auto word) {
    decltype(word) last;
    std::memcpy(&word, from, sizeof word);
    std::memcpy(&last, from + size - sizeof last, sizeof last);
    std::memcpy(to, &word, sizeof word);
    std::memcpy(to + size - sizeof last, &last, sizeof last);
  };
  if (size > 16) {
    std::memcpy(to, from, size);
  } else if (size >= 8) {
    both_ends(std::uint64_t());
  } else if (size >= 4) {
    both_ends(std::uint32_t());
  } else if (size >= 2) {
    both_ends(std::uint16_t());
  } else if (size == 1) {
    *to = *from;
  }
}

}  // namespace qvr
