#include <cstdlib>
#include <cstring>
#include <memory>

#include "ks_wrappers.h"

namespace qvr {

namespace {

template <class Allocate>
void *until_it_works(Allocate allocate) {
  while (true) {
    if (void *memory = allocate()) return memory;
    ks_sleep_ms(1000);
  }
}

}  // namespace

void *ks_malloc(std::size_t size) {
  return until_it_works([&] { return std::malloc(size == 0 ? 1 : size); });
}

void *ks_calloc(std::size_t count, std::size_t size) {
  if (count == 0 || size == 0) count = size = 1;
  return until_it_works([&] { return std::calloc(count, size); });
}

char *ks_strdup(const char *text) {
  if (text == nullptr) text = "";
  std::size_t size = std::strlen(text) + 1;
  return static_cast<char *>(std::memcpy(ks_malloc(size), text, size));
}

void ks_free(void *memory) {
  std::free(memory);
}

std::size_t ks_strlcpy(char *to, const char *from, std::size_t size) {
  std::size_t length = std::strlen(from);
  if (size != 0) {
    std::size_t fits = length < size ? length : size - 1;
    std::memcpy(to, from, fits);
    to[fits] = '\0';
  }
  return length;
}

std::size_t ks_strlcat(char *to, const char *from, std::size_t size) {
  std::size_t used = strnlen(to, size);
  if (used == size) return size + std::strlen(from);
  return used + ks_strlcpy(to + used, from, size - used);
}

const char *ks_strerror(int error) {
  constexpr std::size_t buffers = 200, buffer_size = 3072;
  // Pages that no text reaches are never touched.
  thread_local std::unique_ptr<char[]> ring =
      std::make_unique_for_overwrite<char[]>(buffers * buffer_size);
  thread_local std::size_t next = 0;
  char *buffer = ring.get() + next * buffer_size;
  next = (next + 1) % buffers;
  char local[256];
  ks_strlcpy(buffer, strerror_r(error, local, sizeof local), buffer_size);
  return buffer;
}

}  // namespace qvr
