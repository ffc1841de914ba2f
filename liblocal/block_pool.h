// Memory for bulk records, in blocks of one size.
//
// Records are read once into memory and then again in the order of the report, which leaps all over
// them. With small pages each first touch and most leaps cost the system more than the reading
// does; so blocks are cut from large regions that ask for huge pages.
#pragma once

#include <cstddef>

namespace qvr {

inline constexpr std::size_t POOL_BLOCK = 128 * 1024;  // bytes

// A block, aligned for any object; its owner gives it back. Throws std::bad_alloc when there is no
// memory. Any thread.
std::byte *pool_take();
void pool_give(std::byte *block);

}  // namespace qvr
