// AUTH_UNIX (RFC 5531, appendix A): host, user and groups as plain statements.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "auth_handle.h"
#include "auth_identity.h"

namespace qvr {

inline constexpr std::uint32_t AUTH_UNIX_HOST_MAX = 255;
inline constexpr std::uint32_t AUTH_UNIX_GROUPS_MAX = 65537;

struct auth_unix_body {
  std::uint32_t stamp = 0;  // seconds
  std::string host;
  std::uint32_t uid = 0, gid = 0;
  std::vector<std::uint32_t> gids;
};
bool xdr_put_auth_unix(XDR &xdr, const auth_unix_body &body);
bool xdr_get_auth_unix(XDR &xdr, auth_unix_body &body);

// For the current user: every group that it has, the effective one last. Null with the create error
// set.
std::unique_ptr<AUTH> authunix_create(const identity_source &source = system_identity());

}  // namespace qvr
