#include "xdr.h"

#include <algorithm>

namespace qvr {

bool XDR::put_counted(std::string_view bytes) {
  static const char zeros[4] = {};
  return put_u32(static_cast<std::uint32_t>(bytes.size())) &&
         put_bytes(bytes.data(), bytes.size()) && put_bytes(zeros, -bytes.size() & 3);
}

bool XDR::get_counted(std::string &bytes, std::uint32_t limit) {
  constexpr std::size_t step = 64 * 1024;
  std::uint32_t size = 0;
  if (!get_u32(size) || size > limit) return false;
  if (static_cast<std::size_t>(end_ - cur_) >= size) {
    bytes.assign(reinterpret_cast<const char *>(cur_), size);
    cur_ += size;
  } else {
    bytes.clear();
  }
  while (bytes.size() < size) {
    std::size_t have = bytes.size(), more = std::min<std::size_t>(size - have, step);
    bytes.resize(have + more);
    if (!get_bytes(bytes.data() + have, more)) return false;
  }
  char padding[4];
  return get_bytes(padding, -size & 3);
}

}  // namespace qvr
