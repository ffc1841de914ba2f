#include <netdb.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "ks_wrappers.h"
#include "per_thread.h"
#include "text_convert.h"

namespace qvr {

namespace {

template <class Allocate>
void *until_it_works(Allocate allocate) {
  while (true) {
    if (void *memory = allocate()) return memory;
    // A program that has an answer of its own to memory that cannot be had gives it.
    if (std::new_handler answer = std::get_new_handler()) answer();
    ks_sleep_ms(1000);
  }
}

constexpr std::size_t ERROR_TEXTS = 200, ERROR_TEXT_SIZE = 3072;

struct error_texts_t {
  // Pages that no text reaches are never touched.
  std::unique_ptr<char[]> block =
      std::make_unique_for_overwrite<char[]>(ERROR_TEXTS * ERROR_TEXT_SIZE);
  std::size_t next = 0;
};

const char *keep_error_text(const char *text) {
  error_texts_t &ring = per_thread<error_texts_t>::get();
  char *buffer = ring.block.get() + ring.next * ERROR_TEXT_SIZE;
  ring.next = (ring.next + 1) % ERROR_TEXTS;
  std::string store;
  buffer[text_from_locale(text, store).copy(buffer, ERROR_TEXT_SIZE - 1)] = '\0';
  return buffer;
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
  char room[256];
  return keep_error_text(strerror_r(error, room, sizeof room));
}

const char *ks_gai_strerror(int result) {
  return keep_error_text(gai_strerror(result));
}

}  // namespace qvr
