#include "auth_unix.h"

#include <unistd.h>

#include <cerrno>

#include "clnt_error.h"
#include "debug_words.h"
#include "kstr_auth.h"

namespace qvr {

namespace {

// RFC 5531 allows a server to answer with a short credential that stands for the whole one.
class auth_unix final : public AUTH {
 public:
  explicit auth_unix(auth_unix_body body) : body_(std::move(body)) {}

  bool encode() {
    xdr_memory_writer out;
    if (!xdr_put_auth_unix(out, body_)) return false;
    full_.flavor = AUTH_UNIX;
    full_.body = out.take();
    return true;
  }

  std::uint32_t flavor() const override { return AUTH_UNIX; }
  auth_kind kind() const override { return AUTH_KIND_UNIX; }

  bool marshal(XDR &xdr, const auth_call &) override {
    // A full list of groups makes a body above the limit that holds for what is received.
    const opaque_auth &cred = use_short_ ? short_ : full_;
    return xdr.put_u32(cred.flavor) && xdr.put_counted(cred.body) && xdr.put_u32(AUTH_NONE) &&
           xdr.put_u32(0);
  }

  bool validate(const opaque_auth &verifier, std::uint32_t) override {
    if (verifier.flavor != AUTH_SHORT) return true;
    xdr_memory_reader in(verifier.body);
    use_short_ = xdr_get_opaque_auth(in, short_);
    return true;
  }

  // A server that lost the short form gets the whole one, with a new stamp. With that in use
  // already nothing would change.
  bool refresh() override {
    if (!use_short_) return false;
    use_short_ = false;
    body_.stamp = static_cast<std::uint32_t>(get_kstr_clock().now());
    return encode();
  }

 private:
  auth_unix_body body_;
  opaque_auth full_, short_;
  bool use_short_ = false;
};

}  // namespace

bool xdr_put_auth_unix(XDR &xdr, const auth_unix_body &body) {
  if (body.host.size() > AUTH_UNIX_HOST_MAX || body.gids.size() > AUTH_UNIX_GROUPS_MAX) {
    return false;
  }
  if (!xdr.put_u32(body.stamp) || !xdr.put_counted(body.host) || !xdr.put_u32(body.uid) ||
      !xdr.put_u32(body.gid) || !xdr.put_u32(static_cast<std::uint32_t>(body.gids.size()))) {
    return false;
  }
  for (std::uint32_t gid : body.gids) {
    if (!xdr.put_u32(gid)) return false;
  }
  return true;
}

bool xdr_get_auth_unix(XDR &xdr, auth_unix_body &body) {
  std::uint32_t count = 0;
  if (!xdr.get_u32(body.stamp) || !xdr.get_counted(body.host, AUTH_UNIX_HOST_MAX) ||
      !xdr.get_u32(body.uid) || !xdr.get_u32(body.gid) || !xdr.get_u32(count) ||
      count > AUTH_UNIX_GROUPS_MAX) {
    return false;
  }
  body.gids.clear();
  for (std::uint32_t i = 0; i < count; i++) {
    std::uint32_t gid = 0;
    if (!xdr.get_u32(gid)) return false;
    body.gids.push_back(gid);
  }
  return true;
}

std::unique_ptr<AUTH> authunix_create(const identity_source &source) {
  auth_unix_body body;
  body.stamp = static_cast<std::uint32_t>(get_kstr_clock().now());
  body.host = source.host_name();
  body.uid = source.effective_uid();
  body.gid = source.effective_gid();
  if (!source.all_groups(body.gids)) {
    set_create_err(RPC_SYSTEMERROR, errno);
    return nullptr;
  }
  if (body.gids.size() >= AUTH_UNIX_GROUPS_MAX) body.gids.resize(AUTH_UNIX_GROUPS_MAX - 1);
  body.gids.push_back(body.gid);
  auto auth = std::make_unique<auth_unix>(std::move(body));
  if (!auth->encode()) {
    set_create_err(RPC_SYSTEMERROR, EINVAL);
    return nullptr;
  }
  KS_DEBUG(3, "RPC Authentication: Client successfully obtained AUTH_UNIX credentials\n");
  return auth;
}

}  // namespace qvr
