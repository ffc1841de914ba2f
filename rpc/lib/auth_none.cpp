// The flavour that says nothing, and the wire form of credentials.
#include "auth_handle.h"

namespace qvr {

namespace {

class auth_none final : public AUTH {
 public:
  std::uint32_t flavor() const override { return AUTH_NONE; }
  auth_kind kind() const override { return AUTH_KIND_NONE; }
  bool marshal(XDR &xdr, const auth_call &) override {
    return xdr.put_u32(AUTH_NONE) && xdr.put_u32(0) && xdr.put_u32(AUTH_NONE) && xdr.put_u32(0);
  }
  bool validate(const opaque_auth &, std::uint32_t) override { return true; }
  bool refresh() override { return false; }
};

}  // namespace

std::unique_ptr<AUTH> authnone_create() {
  return std::make_unique<auth_none>();
}

bool xdr_put_opaque_auth(XDR &xdr, const opaque_auth &auth) {
  return auth.body.size() <= OPAQUE_AUTH_MAX && xdr.put_u32(auth.flavor) &&
         xdr.put_counted(auth.body);
}

bool xdr_get_opaque_auth(XDR &xdr, opaque_auth &auth) {
  return xdr.get_u32(auth.flavor) && xdr.get_counted(auth.body, OPAQUE_AUTH_MAX);
}

}  // namespace qvr
