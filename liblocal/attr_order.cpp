#include <array>
#include <cstdint>
#include <cstring>

#include "attrlist.h"

namespace qvr {

namespace {

constexpr std::array<unsigned char, 256> fold = [] {
  std::array<unsigned char, 256> table{};
  for (unsigned c = 0; c < 256; c++) {
    table[c] = static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  }
  return table;
}();

unsigned char folded(char c) {
  return fold[static_cast<unsigned char>(c)];
}

}  // namespace

int attr_name_cmp(std::string_view a, std::string_view b) {
  std::size_t common = a.size() < b.size() ? a.size() : b.size(), i = 0;
  // Names share long beginnings, which need no fold.
  for (std::uint64_t x, y; common - i >= sizeof x; i += sizeof x) {
    std::memcpy(&x, a.data() + i, sizeof x);
    std::memcpy(&y, b.data() + i, sizeof y);
    if (x != y) break;
  }
  for (; i < common; i++) {
    if (a[i] == b[i]) continue;
    int difference = folded(a[i]) - folded(b[i]);
    if (difference != 0) return difference;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size();
}

bool attr_name_equal(std::string_view a, std::string_view b) {
  return a.size() == b.size() && attr_name_cmp(a, b) == 0;
}

}  // namespace qvr
