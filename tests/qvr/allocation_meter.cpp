#include "allocation_meter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> held{0};
std::atomic<std::size_t> peak{0};

void *take(std::size_t size) noexcept {
  void *memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) std::abort();
  std::size_t now = held += malloc_usable_size(memory);
  std::size_t was = peak;
  while (now > was && !peak.compare_exchange_weak(was, now)) {
  }
  return memory;
}

void give(void *memory) {
  if (memory == nullptr) return;
  held -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

namespace qvr::test {

std::size_t meter_start() {
  peak = held.load();
  return peak;
}

std::size_t meter_peak() {
  return peak;
}

}  // namespace qvr::test

void *operator new(std::size_t size) {
  return take(size);
}
void *operator new[](std::size_t size) {
  return take(size);
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  return take(size);
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
  return take(size);
}
void operator delete(void *memory) noexcept {
  give(memory);
}
void operator delete[](void *memory) noexcept {
  give(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
  give(memory);
}
void operator delete[](void *memory, std::size_t) noexcept {
  give(memory);
}
