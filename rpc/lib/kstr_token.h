// Proofs of the session that this process belongs to: the ticket of a job, or the user's token.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvr {

inline constexpr std::size_t KSTR_TOKEN_MAX = 65536;

// Whether this program counts as a daemon, which has no user's token: by the library's flag or by
// QVR_MAST.
bool kstr_is_daemon(bool daemon_flag);

// Reads the token file of `user` in `directory` under its lock. No file is no failure: an empty
// token. False when it cannot be read, which a message has told.
bool kstr_read_token(const std::string &directory, std::string_view user, std::string &token);

// The step of library start: asks qvrexecd on this host for the session ticket list or for a token
// of this session and keeps it for the process. Failures are told and passed over.
void kstr_session_start(bool daemon_flag);

}  // namespace qvr
