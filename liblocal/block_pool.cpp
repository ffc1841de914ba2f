#include "block_pool.h"

#include <sys/mman.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

#include "immortal.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define POOL_OF_THE_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define POOL_OF_THE_HEAP 1
#endif
#endif

namespace qvr {

#ifdef POOL_OF_THE_HEAP

// A sanitizer watches the life of each block, which it cannot do inside a region.
std::byte *pool_take() {
  return static_cast<std::byte *>(::operator new(POOL_BLOCK));
}

void pool_give(std::byte *block) {
  ::operator delete(block);
}

#else

namespace {

constexpr std::size_t HUGE_PAGE = 2 << 20;
constexpr std::size_t REGION = 64 << 20;  // of address space; memory comes when it is touched

// Regions stay with the process; what is given back is used again first.
struct pool_t {
  std::mutex mutex;  // guards the rest
  std::vector<std::byte *> free;
  std::byte *next = nullptr;
  std::byte *end = nullptr;

  void new_region() {
    void *at = mmap(nullptr, REGION + HUGE_PAGE, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (at == MAP_FAILED) throw std::bad_alloc();
    auto start = (reinterpret_cast<std::uintptr_t>(at) + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    next = reinterpret_cast<std::byte *>(start);
    end = next + REGION;
  }
};

pool_t &pool() {
  static immortal<pool_t> made;
  return *made;
}

}  // namespace

std::byte *pool_take() {
  pool_t &blocks = pool();
  std::lock_guard hold(blocks.mutex);
  if (!blocks.free.empty()) {
    std::byte *block = blocks.free.back();
    blocks.free.pop_back();
    return block;
  }
  if (blocks.next == blocks.end) blocks.new_region();
  std::byte *block = blocks.next;
  blocks.next += POOL_BLOCK;
  // All of it will be written: one call instead of a fault a page. Older systems refuse, and fault.
  madvise(block, POOL_BLOCK, MADV_POPULATE_WRITE);
  return block;
}

void pool_give(std::byte *block) {
  pool_t &blocks = pool();
  std::lock_guard hold(blocks.mutex);
  blocks.free.push_back(block);
}

#endif

}  // namespace qvr
