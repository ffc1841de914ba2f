#include "row_text.h"

namespace qvr {

void row_text::grow(std::size_t more) {
  std::size_t room = std::max(2 * room_, size_ + more);
  auto bytes = std::make_unique_for_overwrite<char[]>(room);
  std::memcpy(bytes.get(), bytes_.get(), size_);
  bytes_ = std::move(bytes);
  room_ = room;
}

}  // namespace qvr
