#include "rap_env.h"

#include "auth_gss.h"
#include "clnt_create.h"
#include "kstr_auth.h"
#include "kstr_login.h"
#include "mif_env.h"
#include "rap_protocol.h"

namespace qvr {

namespace {

rap_env_t real_env;
rap_env_t *current_env = &real_env;

// The names by which the auth servers know the daemons that answer RAP.
struct service_row_t {
  std::uint32_t program;
  const char *name;
};
constexpr service_row_t service_rows[] = {
    {QVRD_PROGRAM, "qvrd"},
    {QVREXECD_PROGRAM, "qvrexec"},
};

// Programs whose host the authentication layer is told.
constexpr std::uint32_t told_programs[] = {QVREXECD_PROGRAM, 390103};

std::string_view service_of(std::uint32_t program) {
  for (const service_row_t &row : service_rows) {
    if (row.program == program) return row.name;
  }
  return "qvrd";
}

// What of the opening attributes the authentication reads.
attrlist parameters_of(const attrlist &attrs) {
  attrlist parameters;
  for (std::string_view name : {"auth program number", "auth version number"}) {
    if (const std::string *value = attrlist_first(attrs, name))
      attrlist_set(parameters, name, *value);
  }
  return parameters;
}

}  // namespace

std::unique_ptr<CLIENT> rap_env_t::create(const rap_address_t &address) {
  auto client =
      clnt_create_simple(address.host, address.program, address.version, address.transport);
  for (std::uint32_t program : told_programs) {
    if (client != nullptr && address.program == program) kstr_set_server(address.host);
  }
  return client;
}

errobj_t *rap_env_t::authenticate(CLIENT &client, const rap_address_t &address,
                                  const attrlist &attrs) {
  kstr_cred_list list;
  kstr_target target;
  errobj_t *error =
      kstr_auth_list(address.host, &client, service_of(address.program), parameters_of(attrs), -1,
                     {}, nullptr, AUTH_METHOD_ALL, list, target);
  if (error != nullptr) return error;
  if (clnt_bind_auth(client, address.host, &list, address.host, false) == nullptr)
    return clnt_create_error();
  return nullptr;
}

errobj_t *rap_env_t::login(CLIENT &client, const rap_address_t &address, const std::string &user,
                           const std::string &password, const std::string &domain) {
  (void)address;
  return kstr_login(client, user, password, domain);
}

bool rap_env_t::turn_on_encryption(CLIENT &client) {
  return client.auth && authgss_channel(*client.auth, true);
}

bool rap_env_t::wants_encryption() {
  return kstr_connection_encrypted();
}

void rap_env_t::sleep_seconds(unsigned seconds) {
  mif_env().sleep_ms(seconds * 1000);
}

void rap_set_env(rap_env_t *env) {
  current_env = env != nullptr ? env : &real_env;
}

rap_env_t &rap_env() {
  return *current_env;
}

}  // namespace qvr
