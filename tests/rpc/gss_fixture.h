// Contexts with keys that a test knows, and an acceptor over a table of sessions.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "gss_accept.h"
#include "gss_context.h"
#include "record_fixture.h"
#include "run_command.h"

namespace qvr {

inline std::string gss_test_key(unsigned seed = 1) {
  std::string key(GSS_SECURE_KEY_SIZE, '\0');
  for (std::size_t i = 0; i < key.size(); i++) key[i] = static_cast<char>(i * 7 + seed * 31);
  return key;
}

// A complete context, as either side holds it.
struct gss_test_context {
  gss_ctx ctx;
  explicit gss_test_context(std::uint32_t qop = QOP_SECURE, unsigned seed = 1,
                            std::uint64_t session = 0x1122334455667788) {
    ctx.state = GSS_CTX_COMPLETE;
    ctx.qop = qop_find(qop);
    ctx.session = session;
    if (qop == QOP_SECURE) ctx.set_key(gss_test_key(seed));
  }
  std::string wrap(std::string_view plain) {
    gss_buffer out;
    return gss_wrap(ctx, plain, out) == nullptr ? std::string(out.view()) : "no wrap";
  }
};

inline session_record gss_test_record(std::uint64_t session, std::uint32_t qop = QOP_SECURE) {
  session_record record;
  record.qop = static_cast<std::int32_t>(qop);
  record.has_identity = true;
  record.identity.kind = GSS_IDENTITY_USER;
  record.identity.user.user = "lea";
  record.session = session;
  if (qop == QOP_SECURE) record.key.assign(gss_test_key(static_cast<unsigned>(session)));
  return record;
}

inline gss_cred gss_test_cred(std::uint64_t session, std::uint32_t qop = QOP_SECURE,
                              std::uint32_t kind = GSS_TOKEN_SESSION) {
  gss_cred cred;
  cred.token.tag = kind;
  cred.token.session = session;
  cred.token.nonce.assign("nonce of this credential");
  cred.qop = qop_find(qop);
  cred.key = gss_test_record(session, qop).key;
  return cred;
}

class gss_test_acceptor final : public gss_acceptor {
 public:
  errobj_t *find_session(std::uint64_t session, session_record &record) override {
    auto at = sessions.find(session);
    if (at == sessions.end()) return err_create(0, 25007, "no such session");
    record = at->second;
    return nullptr;
  }
  bool takes_insecure() const override { return insecure; }
  bool serves_claims() const override { return service; }
  errobj_t *open_session(const gss_init_token &claim, session_record &record,
                         gss_reply_token &answer) override {
    claimed = claim.user.user;
    if (path.empty()) return err_create(0, 25013, "nobody knows you");
    record = sessions.begin()->second;
    answer.tag = GSS_REPLY_FILE;
    answer.path = path;
    answer.challenge = "prove it";
    return nullptr;
  }
  std::map<std::uint64_t, session_record> sessions;
  bool insecure = false, service = false;
  std::string path;  // of the record file that a claimant is pointed to
  std::string claimed;
};

inline std::string hex_of(std::string_view bytes) {
  std::string text;
  for (char byte : bytes) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(byte));
    text += pair;
  }
  return text;
}

// What the openssl command makes of the input.
inline std::string openssl(std::vector<std::string> words, std::string_view input) {
  words.insert(words.begin(), "openssl");
  test::command_options options;
  options.input = std::string(input);
  return test::run_command(words, options).out;
}
inline std::string hmac_of(std::string_view key, std::string_view input) {
  return openssl({"mac", "-digest", "SHA1", "-macopt", "hexkey:" + hex_of(key), "-binary", "HMAC"},
                 input);
}

}  // namespace qvr
