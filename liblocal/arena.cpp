#include "arena.h"

#include "block_pool.h"

namespace qvr {

namespace {

constexpr std::size_t SMALLEST = 4096;

}  // namespace

void arena::release_t::operator()(std::byte *block) const {
  if (pooled)
    pool_give(block);
  else
    delete[] block;
}

// A few records take small blocks that double; many take blocks of the pool.
std::byte *arena::new_block(std::size_t size, std::size_t align) {
  std::size_t block = blocks_.empty() ? SMALLEST : std::min(held_, POOL_BLOCK);
  if (block < size + align) block = size + align;
  bool pooled = block <= POOL_BLOCK && held_ >= POOL_BLOCK;
  if (pooled) block = POOL_BLOCK;
  std::byte *memory = pooled ? pool_take() : new std::byte[block];
  blocks_.push_back(block_t(memory, release_t{pooled}));
  held_ += block;
  end_ = memory + block;
  auto at = (reinterpret_cast<std::uintptr_t>(memory) + align - 1) & ~(align - 1);
  return reinterpret_cast<std::byte *>(at);
}

}  // namespace qvr
