// AUTH_KSTR: the flavour that carries a credential blob, a short form that the server hands out for
// it, or a login.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "auth_handle.h"
#include "client.h"

namespace qvr {

enum kstr_body_tag : std::uint32_t {
  KSTR_FULL = 0,         // the blob
  KSTR_SHORT = 1,        // verifier: the short form for the next calls, for an hour
  KSTR_LOST = 2,         // verifier: the short form is not known any more
  KSTR_LOGIN = 3,        // user, response, a further text
  KSTR_SHORT_PLAIN = 4,  // verifier: as 1, without a new expiry
  KSTR_CHALLENGE = 5,    // asks for a challenge
};

inline constexpr std::uint32_t KSTR_LOGIN_TEXT_MAX = 64;

// The union that credential and verifier bodies hold.
struct kstr_body {
  std::uint32_t tag = KSTR_FULL;
  std::string blob;          // KSTR_FULL
  std::uint32_t number = 0;  // KSTR_SHORT, KSTR_LOST, KSTR_SHORT_PLAIN
  std::string user, response, text;
};
bool xdr_put_kstr_body(XDR &xdr, const kstr_body &body);
bool xdr_get_kstr_body(XDR &xdr, kstr_body &body);

// With a blob, or with none: then the thread's callback fetches one. `server_name` empty: the
// thread's callback or the blob gives the name. Null with the create error set.
std::unique_ptr<AUTH> authkstr_create(CLIENT &client, std::string_view server_name,
                                      const std::string *blob);
// A login: asks for a challenge, or answers one.
std::unique_ptr<AUTH> authkstr_create_challenge();
std::unique_ptr<AUTH> authkstr_create_login(std::string_view user, std::string_view response,
                                            std::string_view text);

}  // namespace qvr
