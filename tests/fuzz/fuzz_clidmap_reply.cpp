// Replies of the client id map.
#include <cstdint>

#include "fuzz_replies.h"
#include "mmdb_replies.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  qvr::fuzz_reply<qvr::clidmap_reply>(data, size);
  return 0;
}
