// The error part of replies, plain and structured.
#include <cstdint>

#include "fuzz_replies.h"
#include "xdr_shared.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  qvr::fuzz_round<qvr::errobj_t *>(
      data, size,
      [](qvr::XDR &xdr, qvr::errobj_t *&error) { return qvr::xdr_get_errinfo(xdr, error); },
      [](qvr::XDR &xdr, const qvr::errobj_t *error) { return qvr::xdr_put_errinfo(xdr, error); });
  return 0;
}
