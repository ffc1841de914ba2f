#include "gss_hooks.h"

#include <atomic>

#include "clnt_error.h"

namespace qvr {

namespace {

std::atomic<const gss_hooks_t *> installed{nullptr};

}  // namespace

void set_gss_hooks(const gss_hooks_t *hooks) {
  installed.store(hooks, std::memory_order_release);
}

errobj_t *gss_acquire(const gss_request &request, gss_credential_ptr &credential) {
  const gss_hooks_t *hooks = installed.load(std::memory_order_acquire);
  if (hooks != nullptr) return hooks->acquire_cred(request, credential);
  return err_create(
      78880, 22007, "Could not get session key from %s for GSS authentication: %s",
      {{MSG_ARG_HOST, "localhost"}, {MSG_ARG_ERRTEXT, rpc_status_text(RPC_PROGUNAVAIL)}});
}

std::unique_ptr<AUTH> gss_bind(CLIENT &client, std::string_view target_name,
                               gss_credential_ptr credential, bool encrypted) {
  const gss_hooks_t *hooks = installed.load(std::memory_order_acquire);
  if (hooks != nullptr) {
    return hooks->authgss_create(client, target_name, std::move(credential), encrypted);
  }
  set_create_err(RPC_AUTHERROR, AUTH_REJECTEDCRED);
  return nullptr;
}

}  // namespace qvr
