// Getting a session key from the authentication service of this host.
#include <openssl/rand.h>

#include "auth_gss.h"
#include "clnt_create.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "gss_context.h"
#include "gss_openssl.h"
#include "kstr_auth.h"
#include "kstr_state.h"

namespace qvr {

namespace {

constexpr std::uint32_t service_program = 390436, service_version = 1;
constexpr std::int32_t no_client_code = 22000;  // and the status
constexpr std::int32_t no_key_code = 22007;
constexpr const char *service_host = "localhost";

gss_user_identity current_user(const gss_target &target) {
  auth_identity id = build_kstrauth_parms("", target.name, target.attributes,
                                          static_cast<std::uint32_t>(target.application), false);
  gss_user_identity user;
  user.user = std::move(id.user);
  user.host = std::move(id.machname);
  user.domain_type = std::move(id.domaintype);
  user.domain = std::move(id.domain);
  for (std::string &group : id.groups) user.groups.push_back({std::move(group), std::string()});
  user.application = target.application;
  user.attributes = std::move(id.attributes);
  user.more_attributes = kstr_thread().ldap;
  return user;
}

errobj_t *open_service(std::unique_ptr<CLIENT> &client) {
  client = clnt_create_host("", service_program, service_version, "tcp", 0, 0, CLNT_QUIET);
  if (client) return nullptr;
  KS_DEBUG(1,
           "Could not create client handle for GSS authentication.  Perhaps qvrexecd is too "
           "old.\n");
  return err_create(78880, no_client_code + clnt_create_err().status,
                    "Could not get session key from %s for GSS authentication: %s",
                    {{MSG_ARG_HOST, service_host}, {MSG_ARG_ERRTEXT, clnt_create_error_text()}});
}

errobj_t *no_key(const gss_cred &cred, const gss_target &target) {
  KS_DEBUG(2,
           "Could not get a session key for GSS authentication.  Perhaps this authentication "
           "method is not allowed/supported by both the local and remote remote machines.\n");
  std::string why = clnt_create_error_text();
  if (cred.token.tag == GSS_TOKEN_USER) {
    return err_create(
        79355, no_key_code, "Could not get session key from %s for GSS authentication with %s: %s",
        {{MSG_ARG_HOST, service_host}, {MSG_ARG_HOST, target.name}, {MSG_ARG_ERRTEXT, why}});
  }
  return err_create(78880, no_key_code,
                    "Could not get session key from %s for GSS authentication: %s",
                    {{MSG_ARG_HOST, service_host}, {MSG_ARG_ERRTEXT, why}});
}

// What the handshake with the service left in its context becomes the credential.
errobj_t *take_over(AUTH &auth, gss_cred &cred) {
  std::shared_ptr<gss_ctx> context;
  int kind = 0;
  bool keep = true;
  if (!auth.control(AUTHGSS_GET_KIND, &kind) || kind != AUTH_KIND_GSS ||
      !auth.control(AUTHGSS_GET_CONTEXT, &context) || context->qop == nullptr) {
    return GSS_UNEXPECTED("The authentication service's context is not available");
  }
  auth.control(AUTHGSS_SET_KEEP, &keep);
  cred.token = {};
  cred.token.tag = GSS_TOKEN_SESSION;
  cred.token.session = context->session;
  cred.key.assign(context->key());
  cred.peer = context->peer;
  cred.qop = context->qop;
  context->close();
  std::string nonce(cred.qop->key_size, '\0');
  if (!nonce.empty() && RAND_bytes(reinterpret_cast<unsigned char *>(nonce.data()),
                                   static_cast<int>(nonce.size())) != 1) {
    return err_create(0, GSS_FAILED_CODE, "The crypto library failed");
  }
  cred.token.nonce.assign(nonce);
  secret_wipe(nonce);
  return nullptr;
}

errobj_t *get_session(const gss_target &target, gss_cred &cred) {
  std::unique_ptr<CLIENT> client;
  if (errobj_t *error = open_service(client)) return error;
  errobj_t *error = gss_acquire_from(*client, target, cred);
  clnt_auth_destroy(client);
  return error;
}

}  // namespace

errobj_t *gss_acquire_from(CLIENT &service, const gss_target &target, gss_cred &cred) {
  cred.token.tag = GSS_TOKEN_USER;
  cred.token.daemon =
      gss_name_daemon(target.name_type, target.name.c_str(), target.program, target.version);
  cred.token.user = current_user(target);
  // Shared with the handle for as long as that lives: here, until the end of this routine.
  std::shared_ptr<gss_cred> temporary(&cred, [](gss_cred *) {});
  std::unique_ptr<AUTH> auth = authgss_create(service, service_host, temporary, false);
  errobj_t *error = auth ? take_over(*auth, cred) : no_key(cred, target);
  return error;
}

errobj_t *gss_acquire_cred(int usage, const gss_target &target, std::shared_ptr<gss_cred> &cred) {
  cred.reset();
  if (usage != GSS_INITIATE && usage != GSS_ACCEPT) {
    return GSS_UNEXPECTED("Invalid usage prameter");
  }
  if (errobj_t *error = btls_init()) return error;
  auto made = std::make_shared<gss_cred>();
  if (usage == GSS_INITIATE && !target.insecure) {
    if (errobj_t *error = get_session(target, *made)) return error;
  }
  if (!target.app_token.empty()) {
    made->has_app_token = true;
    made->app_token.bytes.assign(target.app_token);
  }
  cred = std::move(made);
  return nullptr;
}

}  // namespace qvr
