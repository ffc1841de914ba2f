// The error part of replies, plain and structured.
#include "fuzz_replies.h"
#include "xdr_shared.h"

void fuzz(std::string_view input) {
  qvr::fuzz_round<qvr::errobj_t *>(
      input, [](qvr::XDR &xdr, qvr::errobj_t *&error) { return qvr::xdr_get_errinfo(xdr, error); },
      [](qvr::XDR &xdr, const qvr::errobj_t *error) { return qvr::xdr_put_errinfo(xdr, error); });
}
