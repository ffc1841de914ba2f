// RPCSEC_GSS version 1 on the wire (RFC 2203, section 5), with this system's further procedures and
// the extension of the INIT arguments.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "gss_tokens.h"
#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t RPCSEC_GSS_VERSION = 1;
inline constexpr std::uint32_t RPCSEC_GSS_SVC_NONE = 1;
inline constexpr std::uint32_t GSS_MECHANISM_TAG = 4;
inline constexpr std::uint32_t GSS_PRINCIPAL_MAX = 4096;

enum rpcsec_gss_proc : std::uint32_t {
  RPCSEC_GSS_DATA = 0,
  RPCSEC_GSS_INIT = 1,
  RPCSEC_GSS_CONTINUE_INIT = 2,
  RPCSEC_GSS_APP_TOKEN = 4,  // the wrapped application token
  RPCSEC_GSS_CHANNEL = 5,    // turns the encrypted channel on or off
};

// The credential body.
struct gss_call_cred {
  std::uint32_t version = RPCSEC_GSS_VERSION;
  std::uint32_t proc = RPCSEC_GSS_DATA;
  std::uint32_t seq = 0;  // the call's xid, in host order
  std::uint32_t service = RPCSEC_GSS_SVC_NONE;
  std::string handle;
};
bool xdr_put_gss_cred(XDR &xdr, const gss_call_cred &cred);
bool xdr_get_gss_cred(XDR &xdr, gss_call_cred &cred);

// The arguments of INIT, CONTINUE_INIT and APP_TOKEN: the published token, and what follows it.
struct gss_init_args {
  std::string token;
  std::uint32_t mechanism = GSS_MECHANISM_TAG;  // 0: nothing follows this word
  bool app_token_follows = false;
  bool channel_wanted = false;
  std::string principal;
};
// A principal that is too long is told by message 1073.
bool xdr_put_gss_init_args(XDR &xdr, const gss_init_args &args);
// What an older peer leaves out at the end counts as not wanted.
bool xdr_get_gss_init_args(XDR &xdr, gss_init_args &args);

struct gss_init_result {
  std::string handle;
  std::uint32_t major = 0, minor = 0;
  std::uint32_t window = 0;
  std::string token;
};
bool xdr_put_gss_init_result(XDR &xdr, const gss_init_result &result);
bool xdr_get_gss_init_result(XDR &xdr, gss_init_result &result);

}  // namespace qvr
