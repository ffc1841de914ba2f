// Replies of the resource database.
#include <cstdint>

#include "fuzz_replies.h"
#include "rap_protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  qvr::fuzz_reply<qvr::rap_ids_reply>(data, size);
  qvr::fuzz_reply<qvr::rap_res_reply>(data, size);
  return 0;
}
