#include "out_of_memory.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string>

#include "msg.h"

namespace qvr {

namespace {

// Written before any thread is started.
std::array<char, 512> kept_text = {"Out of Memory\n"};

[[noreturn]] void out_of_memory() {
  // Nothing here may ask for memory. A failed write has nobody left to be told to.
  if (write(STDERR_FILENO, kept_text.data(), std::strlen(kept_text.data())) < 0) _exit(1);
  _exit(1);
}

}  // namespace

void install_out_of_memory() {
  std::set_new_handler(out_of_memory);
}

void translate_out_of_memory() {
  std::string text = catalog_text(6129, "Out of Memory");
  text.resize(std::min(text.size(), kept_text.size() - 2));
  text += '\n';
  std::memcpy(kept_text.data(), text.c_str(), text.size() + 1);
}

}  // namespace qvr
