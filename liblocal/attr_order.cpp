#include "attrlist.h"

namespace qvr {

namespace {

constexpr unsigned char fold(char c) {
  return static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
}

}  // namespace

int attr_name_cmp(std::string_view a, std::string_view b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); i++) {
    int difference = fold(a[i]) - fold(b[i]);
    if (difference != 0) return difference;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size();
}

}  // namespace qvr
