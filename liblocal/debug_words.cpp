#include "debug_words.h"

namespace qvr {

debug_words_t debug_words;

namespace {

// Bit L stands for a line of level L: open when the debug level reaches it, and for levels 1 to 10
// also when the mask has bit L - 1.
std::uint32_t open_levels(int level, std::uint32_t mask) {
  std::uint32_t bits = (mask & 0x3ffu) << 1;
  for (int l = 0; l <= 13 && l <= level; l++) bits |= 1u << l;
  return bits;
}

}  // namespace

void debug_set_level(int level) {
  debug_words.level = level;
  debug_words.bits = open_levels(level, debug_words.mask);
}

void debug_set_mask(std::uint32_t mask) {
  debug_words.mask = mask;
  debug_words.bits = open_levels(debug_words.level, mask);
}

}  // namespace qvr
