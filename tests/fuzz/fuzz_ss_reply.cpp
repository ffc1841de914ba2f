// Replies with save sets: lists, pages, failures of batches.
#include <cstdint>

#include "fuzz_replies.h"
#include "mmdb_replies.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  qvr::fuzz_reply<qvr::ss_reply>(data, size);
  qvr::fuzz_reply<qvr::ssr_reply>(data, size);
  qvr::fuzz_reply<qvr::ssop_reply>(data, size);
  return 0;
}
