// Numbers that depend on nothing but their seed.
#pragma once

#include <cstdint>

namespace qvr {

// SplitMix64: small, well mixed, the same on every machine.
class sample_random {
 public:
  explicit sample_random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
    z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
    return z ^ (z >> 31);
  }
  std::uint32_t word() { return static_cast<std::uint32_t>(next() >> 32); }
  // From 0 to below `limit`.
  std::uint64_t below(std::uint64_t limit) { return next() % limit; }
  std::uint64_t between(std::uint64_t low, std::uint64_t high) {
    return low + below(high - low + 1);
  }
  bool one_in(std::uint64_t n) { return below(n) == 0; }

 private:
  std::uint64_t state_;
};

}  // namespace qvr
