// Replies with volumes and ids.
#include <cstdint>

#include "fuzz_replies.h"
#include "mmdb_replies.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  qvr::fuzz_reply<qvr::vol_reply>(data, size);
  qvr::fuzz_reply<qvr::volr_reply>(data, size);
  qvr::fuzz_reply<qvr::volops_reply>(data, size);
  qvr::fuzz_reply<qvr::ids_reply>(data, size);
  return 0;
}
