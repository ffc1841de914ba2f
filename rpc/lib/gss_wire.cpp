#include "gss_wire.h"

#include "gss_status.h"
#include "msg.h"

namespace qvr {

namespace {

bool put_bytes(XDR &xdr, std::string_view bytes) {
  return bytes.size() <= GSS_BYTES_MAX && xdr.put_counted(bytes);
}

}  // namespace

bool xdr_put_gss_cred(XDR &xdr, const gss_call_cred &cred) {
  return xdr.put_u32(cred.version) && xdr.put_u32(cred.proc) && xdr.put_u32(cred.seq) &&
         xdr.put_u32(cred.service) && put_bytes(xdr, cred.handle);
}

bool xdr_get_gss_cred(XDR &xdr, gss_call_cred &cred) {
  return xdr.get_u32(cred.version) && xdr.get_u32(cred.proc) && xdr.get_u32(cred.seq) &&
         xdr.get_u32(cred.service) && xdr.get_counted(cred.handle, GSS_BYTES_MAX);
}

bool xdr_put_gss_init_args(XDR &xdr, const gss_init_args &args) {
  if (args.principal.size() > GSS_PRINCIPAL_MAX) {
    msg_deliver(
        err_create(1073, GSS_FAILED_CODE,
                   "Principal: \"%s\" is longer than the maximum allowed length: %d",
                   {{MSG_ARG_USER, args.principal}, {MSG_ARG_INT, msg_arg_int(GSS_PRINCIPAL_MAX)}}),
        MSG_STDERR);
    return false;
  }
  if (!put_bytes(xdr, args.token) || !xdr.put_u32(args.mechanism)) return false;
  return args.mechanism == 0 ||
         (xdr.put_u32(0) && xdr.put_bool(args.app_token_follows) &&
          xdr.put_bool(args.channel_wanted) && xdr.put_counted(args.principal));
}

bool xdr_get_gss_init_args(XDR &xdr, gss_init_args &args) {
  if (!xdr.get_counted(args.token, GSS_BYTES_MAX)) return false;
  std::uint32_t reserved = 0;
  gss_init_args more;
  bool whole =
      xdr.get_u32(more.mechanism) &&
      (more.mechanism == 0 ||
       (xdr.get_u32(reserved) && xdr.get_bool(more.app_token_follows) &&
        xdr.get_bool(more.channel_wanted) && xdr.get_counted(more.principal, GSS_PRINCIPAL_MAX)));
  if (!whole) more.mechanism = 0;
  more.token = std::move(args.token);
  args = more.mechanism != 0 ? std::move(more)
                             : gss_init_args{std::move(more.token), 0, false, false, std::string()};
  return true;
}

bool xdr_put_gss_init_result(XDR &xdr, const gss_init_result &result) {
  return put_bytes(xdr, result.handle) && xdr.put_u32(result.major) && xdr.put_u32(result.minor) &&
         xdr.put_u32(result.window) && put_bytes(xdr, result.token);
}

bool xdr_get_gss_init_result(XDR &xdr, gss_init_result &result) {
  return xdr.get_counted(result.handle, GSS_BYTES_MAX) && xdr.get_u32(result.major) &&
         xdr.get_u32(result.minor) && xdr.get_u32(result.window) &&
         xdr.get_counted(result.token, GSS_BYTES_MAX);
}

}  // namespace qvr
