// Application tokens.
#include "fuzz_replies.h"
#include "gss_tokens.h"

void fuzz(std::string_view bytes) {
  qvr::fuzz_round<qvr::gss_app_token>(bytes, qvr::xdr_get_app_token, qvr::xdr_put_app_token);
}
