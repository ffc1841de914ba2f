// The XDR of what an auth server answers.
#include "kstr_auth.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

enum result_tag : std::uint32_t { GRANTED = 0, GRANTED_WITH_ERROR = 1, REFUSED = 2, REDIRECT = 3 };

bool put_grant(XDR &xdr, const kstr_result &result) {
  return xdr.put_bool(result.credential.has_value()) &&
         (!result.credential || xdr.put_counted(*result.credential)) &&
         xdr.put_bool(result.target.has_value()) &&
         (!result.target || xdr_put_target(xdr, *result.target));
}

bool get_grant(XDR &xdr, kstr_result &result) {
  bool present = false;
  if (!xdr.get_bool(present)) return false;
  if (present && !xdr.get_counted(result.credential.emplace())) return false;
  if (!xdr.get_bool(present)) return false;
  return !present || xdr_get_target(xdr, result.target.emplace());
}

}  // namespace

bool xdr_put_target(XDR &xdr, const kstr_target &target) {
  return xdr.put_counted(target.host) && xdr.put_u32(target.program) &&
         xdr.put_u32(target.version) && xdr.put_counted(target.protocol) &&
         xdr_put_optional_attrlist(xdr, target.attributes);
}

bool xdr_get_target(XDR &xdr, kstr_target &target) {
  return xdr.get_counted(target.host, IDENTITY_STRING_MAX) && xdr.get_u32(target.program) &&
         xdr.get_u32(target.version) && xdr.get_counted(target.protocol, IDENTITY_STRING_MAX) &&
         xdr_get_optional_attrlist(xdr, target.attributes);
}

bool xdr_put_kstr_result(XDR &xdr, const kstr_result &result) {
  if (!xdr.put_u32(result.tag)) return false;
  switch (result.tag) {
    case GRANTED:
      return put_grant(xdr, result);
    case GRANTED_WITH_ERROR:
      return xdr_put_errinfo(xdr, result.error) && put_grant(xdr, result);
    case REFUSED:
      return xdr_put_errinfo(xdr, result.error);
    case REDIRECT:
      return result.target && xdr_put_target(xdr, *result.target);
    default:
      return false;
  }
}

bool xdr_get_kstr_result(XDR &xdr, kstr_result &result) {
  result = {};
  if (!xdr.get_u32(result.tag)) return false;
  switch (result.tag) {
    case GRANTED:
      return get_grant(xdr, result);
    case GRANTED_WITH_ERROR:
      return xdr_get_errinfo(xdr, result.error) && get_grant(xdr, result);
    case REFUSED:
      return xdr_get_errinfo(xdr, result.error);
    case REDIRECT:
      return xdr_get_target(xdr, result.target.emplace());
    default:
      return false;
  }
}

}  // namespace qvr
