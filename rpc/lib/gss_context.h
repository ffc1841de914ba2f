// Security contexts of the mechanism and the credentials that they grow from. Operations have the
// names and the manner of RFC 2743; the mechanism is this system's own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "errobj.h"
#include "gss_crypto.h"
#include "gss_hooks.h"
#include "gss_qop.h"
#include "gss_status.h"
#include "gss_tokens.h"
#include "secrets.h"

namespace qvr {

enum gss_ctx_state : int {
  GSS_CTX_NEW = 0,
  GSS_CTX_WAIT_SERVICE = 1,   // for the authentication service's token
  GSS_CTX_WAIT_REDIRECT = 2,  // the same behind a redirect
  GSS_CTX_ACCEPTING = 3,
  GSS_CTX_WAIT_PROOF = 4,  // for the peer's proof
  GSS_CTX_COMPLETE = 5,
};

// One side of a context. It serves one connection, and one thread at a time; its key is wiped when
// it goes, and with it what the ciphers of the thread that lets it go have of it.
class gss_ctx {
 public:
  gss_ctx() = default;
  gss_ctx(const gss_ctx &) = delete;
  gss_ctx &operator=(const gss_ctx &) = delete;
  ~gss_ctx() { close(); }

  void set_key(std::string_view key);
  std::string_view key() const { return key_.view(); }
  gss_key_ref key_ref() const { return {key_id_, key_.view()}; }
  // What enters the codes of wrapped data.
  std::uint32_t wrap_seq() const { return static_cast<std::uint32_t>(session); }
  // Takes the context back to its beginning, without a key.
  void close();

  int state = GSS_CTX_NEW;
  gss_identity peer;
  std::uint64_t session = 0;
  bool mutual = false;  // the peer must prove itself
  const qop_row *qop = nullptr;
  std::string challenge;     // an acceptor's, until it is met
  std::int32_t counter = 0;  // of GSS_TOKEN_SESSION_DAEMON

 private:
  secret_bytes key_;
  std::uint64_t key_id_ = 0;
};

// What a context begins with: a kind, which is a token's tag, and the token's fields.
class gss_cred final : public gss_credential {
 public:
  gss_init_token token;  // its tag is the kind
  gss_identity peer;
  secret_bytes key;
  const qop_row *qop = nullptr;
  bool has_app_token = false;
  gss_app_token app_token;
};

enum gss_usage : int { GSS_INITIATE = 1, GSS_ACCEPT = 2 };

struct gss_target {
  bool insecure = false;  // no session key: GSS_TOKEN_INSECURE
  int name_type = GSS_NAME_HOST;
  std::string name;
  std::uint32_t program = 0, version = 0;
  int application = 0;
  std::string app_token;  // goes as GSS_APP_BYTES; empty: none
  attrlist attributes;    // that the user's identity holds beside its own
};

// A credential for the current user: to initiate, with a session key from the authentication
// service of this host. An error object or null.
errobj_t *gss_acquire_cred(int usage, const gss_target &target, std::shared_ptr<gss_cred> &cred);

// The part of it that speaks with the service, over an open handle to it. An error object or null.
errobj_t *gss_acquire_from(CLIENT &service, const gss_target &target, gss_cred &cred);

// The initiator's side, one step: takes the peer's token (empty in the first step), gives the next
// one in `output` (empty: none). `flags` goes in and comes out, `lifetime` is in seconds. An error
// object, with `major` not complete, or null.
errobj_t *gss_init_sec_context(const gss_cred &cred, gss_ctx &context, std::string_view input,
                               std::string &output, std::uint32_t &lifetime, std::uint32_t &major,
                               std::uint32_t &flags);

// On a context that has its quality of protection. An error object or null.
errobj_t *gss_get_mic(gss_ctx &context, std::uint32_t seq, std::string_view input,
                      std::string &token);
errobj_t *gss_verify_mic(gss_ctx &context, std::string_view input, std::string_view token,
                         std::uint32_t *qop, std::uint32_t seq);
errobj_t *gss_wrap(gss_ctx &context, std::string_view input, gss_buffer &output);
errobj_t *gss_unwrap(gss_ctx &context, std::string_view input, gss_buffer &output);

// What a proof is made over: the session number and the challenge or nonce, which may be empty.
std::string gss_proof_input(std::uint64_t session, std::string_view more = {});
// Whether a key is of the length that the quality asks for.
bool gss_key_fits(const qop_row &qop, std::string_view key);

}  // namespace qvr
