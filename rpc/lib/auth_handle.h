// The credential that goes with every call of a client handle (RFC 5531, section 8): one class for
// each flavour, all behind this face.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "function_view.h"
#include "xdr.h"

namespace qvr {

using xdr_encoder = function_view<bool(XDR &)>;
using xdr_decoder = function_view<bool(XDR &)>;

// Flavour numbers on the wire.
inline constexpr std::uint32_t AUTH_NONE = 0;
inline constexpr std::uint32_t AUTH_UNIX = 1;
inline constexpr std::uint32_t AUTH_SHORT = 2;
inline constexpr std::uint32_t RPCSEC_GSS = 6;
inline constexpr std::uint32_t RPCSEC_GSS_OLD = 30001;
inline constexpr std::uint32_t AUTH_KSTR = 30013;

// What the kind query of a handle answers.
enum auth_kind : int {
  AUTH_KIND_NONE = 1,
  AUTH_KIND_UNIX = 2,
  AUTH_KIND_KSTR = 3,
  AUTH_KIND_GSS = 4,
};

// The bits of a method mask: which flavours may be used with a peer.
enum auth_method : std::uint32_t {
  AUTH_METHOD_NONE = 1,
  AUTH_METHOD_UNIX = 2,
  AUTH_METHOD_KSTR = 4,
  AUTH_METHOD_LOGON = 8,
  AUTH_METHOD_GSS = 16,
  AUTH_METHOD_ALL = 31,
};

// Why a call was refused (RFC 5531 auth_stat).
enum auth_why : int {
  AUTH_OK = 0,
  AUTH_BADCRED = 1,
  AUTH_REJECTEDCRED = 2,
  AUTH_BADVERF = 3,
  AUTH_REJECTEDVERF = 4,
  AUTH_TOOWEAK = 5,
  AUTH_INVALIDRESP = 6,
  AUTH_FAILED = 7,
  AUTH_GSS_CREDPROBLEM = 13,
  AUTH_GSS_CTXPROBLEM = 14,
};

// A credential or a verifier as it stands on the wire.
struct opaque_auth {
  std::uint32_t flavor = AUTH_NONE;
  std::string body;
};
// Bodies above the published 400 bytes are normal here; more than this is refused.
inline constexpr std::uint32_t OPAQUE_AUTH_MAX = 65536;
bool xdr_put_opaque_auth(XDR &xdr, const opaque_auth &auth);
bool xdr_get_opaque_auth(XDR &xdr, opaque_auth &auth);

// What a flavour that signs its calls needs to know about one.
struct auth_call {
  std::string_view header;  // xid, direction, RPC version, program, version as encoded
  std::uint32_t procedure = 0;
  std::uint32_t xid = 0;  // host order
};

// Belongs to the thread of the client handle that it is bound to.
class AUTH {
 public:
  virtual ~AUTH() = default;

  virtual std::uint32_t flavor() const = 0;
  virtual auth_kind kind() const = 0;

  // Writes the credential and the verifier of one call.
  virtual bool marshal(XDR &xdr, const auth_call &call) = 0;
  // Write the arguments and read the results; a flavour that protects them does so here.
  virtual bool put_arguments(XDR &xdr, xdr_encoder arguments) { return arguments(xdr); }
  virtual bool get_results(XDR &xdr, xdr_decoder results) { return results(xdr); }

  // Judges the verifier of an accepted reply to the call of that xid (host order).
  virtual bool validate(const opaque_auth &verifier, std::uint32_t xid) = 0;

  // True when the credential should be renewed before the next call. `send_only`: the call will not
  // read a reply.
  virtual bool should_refresh(bool send_only) {
    (void)send_only;
    return false;
  }
  // Renews the credential; false when that is not possible.
  virtual bool refresh() = 0;

  // Requests that only one flavour knows, by number; false for an unknown one.
  virtual bool control(int request, void *argument) {
    (void)request;
    (void)argument;
    return false;
  }
};

std::unique_ptr<AUTH> authnone_create();

}  // namespace qvr
