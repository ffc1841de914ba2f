// The session record: how the authentication service hands a session key to a user, in a file that
// nobody else can read, and to a daemon, in a reply.
#pragma once

#include <cstdint>
#include <string>

#include "errobj.h"
#include "gss_tokens.h"
#include "secrets.h"
#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t SESSION_KEY_MAX = 4096;
inline constexpr std::size_t SESSION_FILE_MAX = 64 * 1024;

struct session_record {
  std::int32_t qop = 0;
  bool has_identity = false;
  gss_identity identity;
  std::uint64_t session = 0;
  secret_bytes key;
  secret_bytes reserved1, reserved2;
};
bool xdr_put_session_record(XDR &xdr, const session_record &record);
bool xdr_get_session_record(XDR &xdr, session_record &record);

// Reads the record that `path` holds. The file must be regular, of root or of the current user,
// closed to group and others, and of at most SESSION_FILE_MAX bytes; links are not followed and
// nothing is waited for. An error object or null.
errobj_t *session_record_read(const std::string &path, session_record &record);

}  // namespace qvr
