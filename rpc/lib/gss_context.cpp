#include "gss_context.h"

#include "debug_words.h"
#include "session_record.h"

namespace qvr {

namespace {

struct step_t {
  const gss_cred &cred;
  gss_ctx &context;
  std::string_view input;
  std::string &output;
  std::uint32_t &lifetime;
  std::uint32_t &major;
  std::uint32_t &flags;

  errobj_t *insecure();
  errobj_t *present_claim();
  errobj_t *present_session();
  errobj_t *take_service_answer();
  errobj_t *take_session(const session_record &record, std::string_view challenge);
  errobj_t *take_proof();

 private:
  errobj_t *encode(const gss_init_token &token);
  void complete() {
    context.state = GSS_CTX_COMPLETE;
    major = GSS_COMPLETE;
    lifetime = GSS_LIFETIME_FOREVER;
  }
};

errobj_t *step_t::encode(const gss_init_token &token) {
  xdr_memory_writer out;
  if (!xdr_put_init_token(out, token)) {
    return err_create(0, GSS_FAILED_CODE, "The token of a GSS context does not encode");
  }
  output = out.take();
  return nullptr;
}

errobj_t *step_t::insecure() {
  context.qop = qop_find(QOP_CHECKSUM);
  if (errobj_t *error = encode(cred.token)) return error;
  flags = GSS_FLAG_NO_REPLY;
  complete();
  return nullptr;
}

// The authentication service judges what the token claims.
errobj_t *step_t::present_claim() {
  if (errobj_t *error = encode(cred.token)) return error;
  context.state =
      cred.token.tag == GSS_TOKEN_REDIRECT ? GSS_CTX_WAIT_REDIRECT : GSS_CTX_WAIT_SERVICE;
  flags = GSS_FLAG_MUTUAL;
  major = GSS_CONTINUE_NEEDED;
  return nullptr;
}

errobj_t *step_t::present_session() {
  bool daemon = cred.token.tag == GSS_TOKEN_SESSION_DAEMON;
  if (cred.qop == nullptr || !gss_key_fits(*cred.qop, cred.key.view())) {
    return err_create(0, GSS_FAILED_CODE, "The session key of a GSS credential is not usable");
  }
  context.mutual = daemon || flags == 0 || flags == GSS_FLAG_MUTUAL;
  context.session = cred.token.session;
  context.counter = daemon ? cred.token.counter : 0;
  context.qop = cred.qop;
  context.set_key(cred.key.view());
  context.peer = cred.peer;
  gss_init_token token;
  token.tag = cred.token.tag;
  token.session = context.session;
  token.mutual = context.mutual;
  token.counter = context.counter;
  token.nonce = cred.token.nonce;
  if (errobj_t *error = gss_get_mic(context, static_cast<std::uint32_t>(context.counter),
                                    gss_proof_input(context.session), token.proof)) {
    return error;
  }
  if (errobj_t *error = encode(token)) return error;
  if (context.mutual) {
    context.state = GSS_CTX_WAIT_PROOF;
    if (daemon) flags = GSS_FLAG_MUTUAL;
    major = GSS_CONTINUE_NEEDED;
  } else {
    flags |= GSS_FLAG_NO_REPLY;
    complete();
  }
  return nullptr;
}

// Reading the file that only the claimed user can read is the proof of the claim.
errobj_t *step_t::take_session(const session_record &record, std::string_view challenge) {
  context.qop = qop_find(static_cast<std::uint32_t>(record.qop));
  if (context.qop == nullptr) {
    return err_create(0, GSS_FAILED_CODE, "Could not find qop entry in table");
  }
  if (!gss_key_fits(*context.qop, record.key.view())) {
    return err_create(0, GSS_FAILED_CODE, "The session key is not of the right length");
  }
  context.session = record.session;
  context.set_key(record.key.view());
  context.peer = record.has_identity ? record.identity : gss_identity();
  if (errobj_t *error =
          gss_get_mic(context, 0, gss_proof_input(context.session, challenge), output)) {
    return error;
  }
  complete();
  return nullptr;
}

errobj_t *step_t::take_service_answer() {
  if (input.empty()) {
    return GSS_UNEXPECTED(
        "There needs to be an input token if the context is already being established\n");
  }
  xdr_memory_reader in(input);
  gss_reply_token token;
  if (!xdr_get_reply_token(in, token)) {
    major = GSS_DEFECTIVE_CREDENTIAL;
    return err_create(0, GSS_FAILED_CODE, "The authentication service's token does not decode");
  }
  if (token.tag == GSS_REPLY_FILE) {
    session_record record;
    if (errobj_t *error = session_record_read(token.path, record)) return error;
    return take_session(record, token.challenge);
  }
  if (token.tag == GSS_REPLY_PIPE) {
    return err_create(84831, GSS_FAILED_CODE,
                      "Cannot open client side named pipe for authentication: %s.\n",
                      {{MSG_ARG_ERRTEXT, "this platform has none"}});
  }
  return token.error != nullptr
             ? token.error
             : err_create(0, GSS_FAILED_CODE, "The authentication service gave no session key");
}

errobj_t *step_t::take_proof() {
  if (input.empty()) {
    return GSS_UNEXPECTED(
        "There needs to be an input token if the context is already being established\n");
  }
  std::uint32_t seq = static_cast<std::uint32_t>(context.counter) + 1;
  std::string whole = gss_proof_input(context.session, cred.token.nonce.view());
  errobj_t *error = gss_verify_mic(context, whole, input, nullptr, seq);
  secret_wipe(whole);
  if (error != nullptr) {
    major = GSS_BAD_SIGNATURE;
    return error;
  }
  complete();
  return nullptr;
}

// By the kind of the credential.
struct kind_row {
  std::uint32_t kind;
  errobj_t *(step_t::*begin)();
};
constexpr kind_row kind_rows[] = {
    {GSS_TOKEN_INSECURE, &step_t::insecure},
    {GSS_TOKEN_USER, &step_t::present_claim},
    {GSS_TOKEN_DAEMON, &step_t::present_claim},
    {GSS_TOKEN_REDIRECT, &step_t::present_claim},
    {GSS_TOKEN_SESSION, &step_t::present_session},
    {GSS_TOKEN_SESSION_DAEMON, &step_t::present_session},
};

errobj_t *begin(step_t &step) {
  for (const kind_row &row : kind_rows) {
    if (row.kind == step.cred.token.tag) return (step.*row.begin)();
  }
  return GSS_UNEXPECTED("Invalid cred type used when trying to get a context\n");
}

}  // namespace

void gss_ctx::set_key(std::string_view key) {
  key_.assign(key);
  key_id_ = gss_new_key_id();
}

void gss_ctx::close() {
  if (key_id_ != 0) gss_crypto::forget(key_id_);
  key_.wipe();
  key_id_ = 0;
  secret_wipe(challenge);
  state = GSS_CTX_NEW;
  peer = {};
  session = 0;
  mutual = false;
  qop = nullptr;
  counter = 0;
}

errobj_t *gss_init_sec_context(const gss_cred &cred, gss_ctx &context, std::string_view input,
                               std::string &output, std::uint32_t &lifetime, std::uint32_t &major,
                               std::uint32_t &flags) {
  output.clear();
  lifetime = 0;
  major = GSS_FAILURE;
  step_t step{cred, context, input, output, lifetime, major, flags};
  errobj_t *error = nullptr;
  switch (context.state) {
    case GSS_CTX_NEW:
      error = begin(step);
      break;
    case GSS_CTX_WAIT_SERVICE:
    case GSS_CTX_WAIT_REDIRECT:
      error = step.take_service_answer();
      break;
    case GSS_CTX_WAIT_PROOF:
      error = step.take_proof();
      break;
    default:
      error = err_create(0, GSS_FAILED_CODE, "The GSS context is in no state to go on");
  }
  if (error != nullptr) secret_wipe(output);
  return error;
}

errobj_t *gss_get_mic(gss_ctx &context, std::uint32_t seq, std::string_view input,
                      std::string &token) {
  if (context.qop == nullptr) return GSS_UNEXPECTED("Incorrect get_mic function");
  return context.qop->get_mic(context, seq, input, token);
}

errobj_t *gss_verify_mic(gss_ctx &context, std::string_view input, std::string_view token,
                         std::uint32_t *qop, std::uint32_t seq) {
  if (context.qop == nullptr) return GSS_UNEXPECTED("Incorrect verify_mic function");
  if (qop != nullptr) *qop = context.qop->qop;
  return context.qop->verify_mic(context, seq, input, token);
}

errobj_t *gss_wrap(gss_ctx &context, std::string_view input, gss_buffer &output) {
  if (context.qop == nullptr) return err_create(0, GSS_FAILED_CODE, "The GSS context has no key");
  return context.qop->wrap(context, input, output);
}

errobj_t *gss_unwrap(gss_ctx &context, std::string_view input, gss_buffer &output) {
  if (context.qop == nullptr) return err_create(0, GSS_FAILED_CODE, "The GSS context has no key");
  return context.qop->unwrap(context, input, output);
}

std::string gss_proof_input(std::uint64_t session, std::string_view more) {
  std::uint8_t number[8];
  XDR::store32(number, static_cast<std::uint32_t>(session >> 32));
  XDR::store32(number + 4, static_cast<std::uint32_t>(session));
  std::string input;
  input.reserve(sizeof number + more.size());
  input.append(reinterpret_cast<const char *>(number), sizeof number);
  input.append(more);
  return input;
}

bool gss_key_fits(const qop_row &qop, std::string_view key) {
  return qop.qop != QOP_SECURE || key.size() == qop.key_size;
}

}  // namespace qvr
