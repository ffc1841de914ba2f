// Logging in with a user's password: a digest answers a challenge, the password never travels.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "client.h"
#include "errobj.h"

namespace qvr {

inline constexpr std::size_t KSTR_DIGEST_SIZE = 20;
using kstr_digest = std::array<std::uint8_t, KSTR_DIGEST_SIZE>;

// SHA-1 of the challenge followed by SHA-1 of the password. False when the digest cannot be made.
bool kstr_login_digest(std::string_view challenge, std::string_view password, kstr_digest &digest);

// Asks the daemon at the other end of `client` for a challenge and binds a login that answers it.
// `text` goes along as the caller's own. An error object (message 84824 and the like) or null.
errobj_t *kstr_login(CLIENT &client, std::string_view user, std::string_view password,
                     std::string_view text);

// The auth server's own challenge (procedure 123), answered with the digest; without a password it
// is the digest of the challenge alone. An error object or null.
errobj_t *kstr_answer_challenge(CLIENT &client, std::string_view password, kstr_digest &digest);

}  // namespace qvr
