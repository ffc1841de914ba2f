#include "gss_accept.h"

#include "debug_words.h"
#include "gss_status.h"

namespace qvr {

namespace {

struct accept_t {
  gss_acceptor &acceptor;
  gss_ctx &context;
  std::string &output;
  std::uint32_t &major;
  std::uint32_t &flags;

  errobj_t *insecure(const gss_init_token &token);
  errobj_t *claim(const gss_init_token &token);
  errobj_t *session(const gss_init_token &token);
  errobj_t *claim_proof(std::string_view proof);

 private:
  errobj_t *take_key(const session_record &record);
  void complete() {
    context.state = GSS_CTX_COMPLETE;
    major = GSS_COMPLETE;
  }
};

errobj_t *accept_t::take_key(const session_record &record) {
  context.qop = qop_find(static_cast<std::uint32_t>(record.qop));
  if (context.qop == nullptr || !gss_key_fits(*context.qop, record.key.view())) {
    return err_create(0, GSS_FAILED_CODE, "The record of a GSS session is not usable");
  }
  context.session = record.session;
  context.set_key(record.key.view());
  context.peer = record.has_identity ? record.identity : gss_identity();
  return nullptr;
}

errobj_t *accept_t::insecure(const gss_init_token &) {
  if (!acceptor.takes_insecure()) {
    return err_create(89393, GSS_FAILED_CODE,
                      "An attempt to use GSS authentication insecure mode was made when insecure "
                      "mode is not accepted by this server");
  }
  context.qop = qop_find(QOP_CHECKSUM);
  flags = GSS_FLAG_NO_REPLY;
  complete();
  return nullptr;
}

errobj_t *accept_t::claim(const gss_init_token &token) {
  if (!acceptor.serves_claims()) {
    return err_create(997, GSS_FAILED_CODE,
                      "An authentication request that is only servicable by an authentication "
                      "server was made of a non-authentication server");
  }
  session_record record;
  gss_reply_token answer;
  errobj_t *error = acceptor.open_session(token, record, answer);
  if (error == nullptr) error = take_key(record);
  if (error != nullptr) {
    // The claimant is told why.
    answer = {};
    answer.error = error;
  }
  xdr_memory_writer out;
  if (!xdr_put_reply_token(out, answer)) {
    return err_create(0, GSS_FAILED_CODE, "The answer to a GSS claim does not encode");
  }
  output = out.take();
  context.challenge = answer.challenge;
  context.state = error == nullptr ? GSS_CTX_ACCEPTING : GSS_CTX_NEW;
  flags = GSS_FLAG_MUTUAL;
  major = GSS_CONTINUE_NEEDED;
  return nullptr;
}

errobj_t *accept_t::claim_proof(std::string_view proof) {
  std::string whole = gss_proof_input(context.session, context.challenge);
  if (errobj_t *error = gss_verify_mic(context, whole, proof, nullptr, 0)) {
    major = GSS_BAD_SIGNATURE;
    return error;
  }
  secret_wipe(context.challenge);
  complete();
  return nullptr;
}

errobj_t *accept_t::session(const gss_init_token &token) {
  bool daemon = token.tag == GSS_TOKEN_SESSION_DAEMON;
  session_record record;
  if (errobj_t *error = acceptor.find_session(token.session, record)) return error;
  if (errobj_t *error = take_key(record)) return error;
  context.counter = daemon ? token.counter : 0;
  context.mutual = daemon || token.mutual;
  auto seq = static_cast<std::uint32_t>(context.counter);
  if (errobj_t *error =
          gss_verify_mic(context, gss_proof_input(context.session), token.proof, nullptr, seq)) {
    major = GSS_BAD_SIGNATURE;
    return error;
  }
  if (context.mutual) {
    std::string whole = gss_proof_input(context.session, token.nonce.view());
    errobj_t *error = gss_get_mic(context, seq + 1, whole, output);
    secret_wipe(whole);
    if (error != nullptr) return error;
    flags = GSS_FLAG_MUTUAL;
  } else {
    flags = GSS_FLAG_NO_REPLY;
  }
  complete();
  return nullptr;
}

struct tag_row {
  std::uint32_t tag;
  errobj_t *(accept_t::*take)(const gss_init_token &token);
};
constexpr tag_row tag_rows[] = {
    {GSS_TOKEN_INSECURE, &accept_t::insecure}, {GSS_TOKEN_USER, &accept_t::claim},
    {GSS_TOKEN_DAEMON, &accept_t::claim},      {GSS_TOKEN_REDIRECT, &accept_t::claim},
    {GSS_TOKEN_SESSION, &accept_t::session},   {GSS_TOKEN_SESSION_DAEMON, &accept_t::session},
};

errobj_t *begin(accept_t &accept, std::string_view input) {
  xdr_memory_reader in(input);
  gss_init_token token;
  if (xdr_get_init_token(in, token)) {
    for (const tag_row &row : tag_rows) {
      if (row.tag == token.tag) return (accept.*row.take)(token);
    }
  }
  accept.major = GSS_DEFECTIVE_CREDENTIAL;
  return err_create(89394, GSS_FAILED_CODE,
                    "A GSS authentication request of an unknown type was made");
}

}  // namespace

errobj_t *gss_acceptor::open_session(const gss_init_token &, session_record &, gss_reply_token &) {
  return err_create(0, GSS_FAILED_CODE, "This is no authentication service");
}

errobj_t *gss_accept_sec_context(gss_acceptor &acceptor, gss_ctx &context, std::string_view input,
                                 std::string &output, std::uint32_t &major, std::uint32_t &flags) {
  output.clear();
  major = GSS_FAILURE;
  flags = 0;
  accept_t accept{acceptor, context, output, major, flags};
  errobj_t *error = nullptr;
  if (context.state == GSS_CTX_NEW) {
    error = begin(accept, input);
  } else if (context.state == GSS_CTX_ACCEPTING) {
    error = accept.claim_proof(input);
  } else {
    error = err_create(0, GSS_FAILED_CODE, "The GSS context is in no state to go on");
  }
  if (error == nullptr) return nullptr;
  context.close();
  return error;
}

void gss_log_channel(bool encrypted, std::string_view address) {
  std::string ip(address);
  if (encrypted) {
    KS_DEBUG(1, "RPC Authentication: Encrypted channel negotiated for ip: %s\n", ip.c_str());
  } else {
    KS_DEBUG(1, "RPC Authentication: Non-encrypted channel negotiated for ip: %s\n", ip.c_str());
  }
}

}  // namespace qvr
