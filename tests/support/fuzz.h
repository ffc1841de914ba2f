// The entry of a fuzz target, which defines fuzz().
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

void fuzz(std::string_view input);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz({reinterpret_cast<const char *>(data), size});
  return 0;
}
