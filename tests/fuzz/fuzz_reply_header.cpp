// The header of a reply with its verifier, as any server may send it.
#include "auth_kstr.h"
#include "clnt_error.h"
#include "fuzz.h"
#include "rpc_message.h"

using namespace qvr;

void fuzz(std::string_view bytes) {
  xdr_memory_reader in(bytes);
  rpc_reply_t reply;
  if (!xdr_get_reply(in, reply)) return;
  if (reply.verifier.body.size() > bytes.size()) std::abort();
  rpc_err_t error;
  rpc_reply_error(reply, error);
  if (error.status == RPC_SUCCESS && (!reply.accepted || reply.status != 0)) std::abort();
  std::string text = rpc_error_text(error, "fuzz");
  if (text.empty() || text.size() > 1023) std::abort();
  errobj_t *object = rpc_error_object(error);
  if ((object == nullptr) != (error.status == RPC_SUCCESS)) std::abort();
  xdr_memory_reader verifier(reply.verifier.body);
  kstr_body body;
  if (xdr_get_kstr_body(verifier, body)) {
    xdr_memory_writer out;
    if (!xdr_put_kstr_body(out, body)) std::abort();
  }
}
