// The words that decide which debug lines are written, and nothing else: every floor may include
// this header, and it includes nothing of the house.
#pragma once

#include <atomic>
#include <cstdint>

namespace qvr {

// Process-wide and read without a lock: a signal handler may write them, and a reader puts up with
// a late value. Change level and mask through the two setters, which keep `bits` in step.
struct debug_words_t {
  std::atomic<int> level{0};
  std::atomic<std::uint32_t> mask{0};
  std::atomic<std::uint32_t> bits{1};  // bit L set: a line of level L is written
  std::atomic<int> verbosity{0};
  std::atomic<int> interrupted{0};  // non-zero: network waits and long loops end
  std::atomic<int> time_stamps{1};  // debug lines begin with date and time
  std::atomic<int> file_time_prefix{0};
};

extern debug_words_t debug_words;

void debug_set_level(int level);
void debug_set_mask(std::uint32_t mask);

// True when a line of `level` (0 to 13) is to be written. Costs one load and one test.
inline bool debug_on(int level) {
  return (debug_words.bits.load(std::memory_order_relaxed) >> level & 1u) != 0;
}

// Writes a debug line whose level is open already; use KS_DEBUG instead, which leaves the arguments
// alone when the level is closed. Any thread.
void dprintf_level(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The form for conditions that are programming errors (level 1); use KS_UNEXPECTED instead. `path`,
// as it stands in the source tree, and `line` name the call.
void unexpected_error(const char *path, int line, const char *text);

}  // namespace qvr

#define KS_DEBUG(level, ...)                                              \
  do {                                                                    \
    if (::qvr::debug_on(level)) ::qvr::dprintf_level(level, __VA_ARGS__); \
  } while (0)

#define KS_UNEXPECTED(text)                                                    \
  do {                                                                         \
    if (::qvr::debug_on(1)) ::qvr::unexpected_error(__FILE__, __LINE__, text); \
  } while (0)
