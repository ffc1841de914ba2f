#include "gss_install.h"

#include "auth_gss.h"
#include "gss_context.h"
#include "gss_hooks.h"

namespace qvr {

namespace {

errobj_t *acquire(const gss_request &request, gss_credential_ptr &credential) {
  gss_target target;
  target.name = request.host;
  target.program = request.program;
  target.version = request.version;
  target.application = request.application;
  target.app_token = request.application_token;
  target.attributes = request.attributes;
  std::shared_ptr<gss_cred> cred;
  errobj_t *error = gss_acquire_cred(GSS_INITIATE, target, cred);
  secret_wipe(target.app_token);
  credential = std::move(cred);
  return error;
}

constexpr gss_hooks_t hooks = {acquire, authgss_create};

}  // namespace

void gss_install() {
  set_gss_hooks(&hooks);
}

}  // namespace qvr
