#include "out_of_memory.h"

#include <unistd.h>

#include <array>
#include <cstring>
#include <new>

#include "msg.h"

namespace qvr {

namespace {

std::array<char, 512> kept_text;  // written once, before any thread is started

[[noreturn]] void out_of_memory() {
  // Nothing here may ask for memory. A failed write has nobody left to be told to.
  if (write(STDERR_FILENO, kept_text.data(), std::strlen(kept_text.data())) < 0) _exit(1);
  _exit(1);
}

}  // namespace

void install_out_of_memory() {
  std::strncpy(kept_text.data(), catalog_text(6129, "Out of Memory"), kept_text.size() - 2);
  std::strcat(kept_text.data(), "\n");
  std::set_new_handler(out_of_memory);
}

}  // namespace qvr
