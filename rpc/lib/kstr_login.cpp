#include "kstr_login.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include "auth_kstr.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "kstr_auth.h"
#include "secrets.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::chrono::seconds login_timeout{30};
constexpr std::chrono::seconds challenge_timeout{25};
constexpr std::uint32_t challenge_max = 4096;

bool sha1(std::string_view bytes, kstr_digest &digest) {
  unsigned size = 0;
  return EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha1(), nullptr) == 1 &&
         size == digest.size();
}

std::string hex(const kstr_digest &digest) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (std::uint8_t byte : digest) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

errobj_t *login_failed(std::string_view user, const errobj_t *inner) {
  return err_create(84824, 25007,
                    "Failed to authenticate with Login authentication with user %s: %s\n",
                    {{MSG_ARG_USER, user}, msg_pair_t(inner)});
}

}  // namespace

bool kstr_login_digest(std::string_view challenge, std::string_view password, kstr_digest &digest) {
  kstr_digest inner;
  if (!sha1(password, inner)) return false;
  secret_text whole;
  whole.get().reserve(challenge.size() + inner.size());
  whole.get() = challenge;
  whole.get().append(reinterpret_cast<const char *>(inner.data()), inner.size());
  secret_wipe(inner.data(), inner.size());
  return sha1(whole.get(), digest);
}

errobj_t *kstr_login(CLIENT &client, std::string_view user, std::string_view password,
                     std::string_view text) {
  client.auth = authkstr_create_challenge();
  std::string challenge;
  clnt_stat status = client.call(
      0, {}, [&](XDR &xdr) { return xdr.get_counted(challenge, challenge_max); }, login_timeout);
  if (status != RPC_SUCCESS) return login_failed(user, clnt_error(client));
  kstr_digest digest;
  if (!kstr_login_digest(challenge, password, digest)) {
    const char *why = ERR_reason_error_string(ERR_get_error());
    KS_DEBUG(1, "error occurred during digest generation for password: %s\n",
             why != nullptr ? why : "unknown");
    return err_from_table(2, RPC_AUTHERROR);
  }
  auto auth = authkstr_create_login(user, hex(digest), text);
  secret_wipe(digest.data(), digest.size());
  if (!auth) return login_failed(user, clnt_create_error());
  client.auth = std::move(auth);
  return nullptr;
}

errobj_t *kstr_answer_challenge(CLIENT &client, std::string_view password, kstr_digest &digest) {
  std::string challenge(8, '\0');
  errobj_t *error = nullptr;
  clnt_stat status = client.call(
      KSTR_PROC_CHALLENGE, {},
      [&](XDR &xdr) {
        std::uint32_t tag = 0;
        if (!xdr.get_u32(tag) || tag > 2) return false;
        return tag == 2 ? xdr_get_errinfo(xdr, error)
                        : xdr.get_bytes(challenge.data(), challenge.size());
      },
      challenge_timeout);
  if (status != RPC_SUCCESS) return clnt_error(client);
  if (error != nullptr) return error;
  bool made =
      password.empty() ? sha1(challenge, digest) : kstr_login_digest(challenge, password, digest);
  return made ? nullptr : err_from_table(2, RPC_AUTHERROR);
}

}  // namespace qvr
