// Memory for bulk records, in blocks of one size.
//
// First touches of fresh pages cost the system more than the reading of what comes into them; so
// blocks are made present whole, and are used again by this process.
#pragma once

#include <cstddef>

namespace qvr {

inline constexpr std::size_t POOL_BLOCK = 128 * 1024;  // bytes

// A block, aligned for any object; its owner gives it back. Throws std::bad_alloc when there is no
// memory. Any thread.
std::byte *pool_take();
void pool_give(std::byte *block);

}  // namespace qvr
