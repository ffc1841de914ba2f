// Results of INIT calls.
#include "fuzz_replies.h"
#include "gss_wire.h"

void fuzz(std::string_view bytes) {
  qvr::fuzz_round<qvr::gss_init_result>(bytes, qvr::xdr_get_gss_init_result,
                                        qvr::xdr_put_gss_init_result);
}
