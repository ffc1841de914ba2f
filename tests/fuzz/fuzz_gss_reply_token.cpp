// Answers of the authentication service, as far as a waiting context takes them. The files that
// they point to are looked for where there are none.
#include "fuzz.h"
#include "gss_context.h"
#include "short_writer.h"

using namespace qvr;

void fuzz(std::string_view bytes) {
  xdr_memory_reader in(bytes);
  gss_reply_token token;
  if (xdr_get_reply_token(in, token)) {
    if (token.path.size() > GSS_PATH_MAX || token.challenge.size() > GSS_BYTES_MAX) std::abort();
    xdr_memory_writer out;
    if (!xdr_put_reply_token(out, token) ||
        !tells_short_streams(out.bytes().size(),
                             [&](XDR &full) { return xdr_put_reply_token(full, token); })) {
      std::abort();
    }
  }
  gss_cred cred;
  cred.token.tag = GSS_TOKEN_USER;
  gss_ctx context;
  context.state = GSS_CTX_WAIT_SERVICE;
  std::string output;
  std::uint32_t lifetime = 0, major = 0, flags = 0;
  // A path that the input names may exist; only the failure of the others is certain.
  if (token.tag == GSS_REPLY_FILE && token.path.starts_with('/')) return;
  if (gss_init_sec_context(cred, context, bytes, output, lifetime, major, flags) == nullptr ||
      major == GSS_COMPLETE || context.qop != nullptr) {
    std::abort();
  }
}
