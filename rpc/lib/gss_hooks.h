// The seam to the security layer: credential binding calls RPCSEC_GSS through this table, and the
// layer installs itself by filling it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "attrlist.h"
#include "client.h"
#include "errobj.h"

namespace qvr {

// A credential of the security layer, whatever it holds.
class gss_credential {
 public:
  virtual ~gss_credential() = default;
};
using gss_credential_ptr = std::shared_ptr<gss_credential>;

struct gss_request {
  std::string host;  // the target daemon's machine
  std::uint32_t program = 0;
  std::uint32_t version = 0;
  int application = 0;
  std::string application_token;  // the AUTH_KSTR blob; empty: none
  attrlist attributes;            // that the identity holds beside its own
};

struct gss_hooks_t {
  // Gets a session key for the target. An error object or null.
  errobj_t *(*acquire_cred)(const gss_request &request, gss_credential_ptr &credential);
  // Makes the flavour on the handle; null with the create error set. An empty target name means the
  // peer's numeric address, a null credential that one is made for the current user.
  std::unique_ptr<AUTH> (*authgss_create)(CLIENT &client, std::string_view target_name,
                                          gss_credential_ptr credential, bool encrypted);
};

// At start, before other threads run; null takes the layer out. Without it every acquisition fails
// as a failure to get a credential.
void set_gss_hooks(const gss_hooks_t *hooks);
errobj_t *gss_acquire(const gss_request &request, gss_credential_ptr &credential);
std::unique_ptr<AUTH> gss_bind(CLIENT &client, std::string_view target_name,
                               gss_credential_ptr credential, bool encrypted);

}  // namespace qvr
