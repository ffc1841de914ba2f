#include "start_env.h"

#include <cerrno>

#include "clnt_create.h"
#include "clnt_error.h"
#include "hosts.h"
#include "ks_wrappers.h"
#include "kstr_auth.h"
#include "kstr_token.h"
#include "rap_env.h"
#include "rap_network.h"
#include "rap_protocol.h"

namespace qvr {

namespace {

constexpr const char *service_name = "qvrexec";

start_env_t real_env;
start_env_t *current_env = &real_env;

attrlist opening_attributes(const std::string &host) {
  std::string program = std::to_string(QVREXECD_PROGRAM);
  std::string version = std::to_string(QVREXECD_VERSION);
  return attrlist_build({{"hostname", {host}},
                         {"ONC program number", {program}},
                         {"auth program number", {program}},
                         {"ONC version number", {version}},
                         {"auth version number", {version}}});
}

bool nobody_there_yet() {
  const rpc_create_err_t &error = clnt_create_err();
  return error.status == RPC_PROGNOTREGISTERED ||
         (error.status == RPC_SYSTEMERROR && error.error.error == ECONNREFUSED);
}

}  // namespace

errobj_t *start_env_t::open_execd(const std::string &host, bool own, resdb_ptr &handle,
                                  bool &not_yet) {
  set_create_err(RPC_SUCCESS);
  std::unique_ptr<CLIENT> client =
      clnt_create_simple(host, QVREXECD_PROGRAM, QVREXECD_VERSION, "tcp");
  not_yet = client == nullptr && nobody_there_yet();
  if (client == nullptr) {
    // A constructor that gave no reason still gave no handle.
    return clnt_create_err().status != RPC_SUCCESS
               ? clnt_create_error()
               : err_create(4199, 35017, "Service not available.\n");
  }
  if (own) {
    client->set_auth_mask(client->auth_mask() & ~std::uint32_t{AUTH_METHOD_KSTR});
  } else {
    kstr_set_server(host);
    kstr_set_thread_server(host, service_name);
  }
  attrlist attrs = opening_attributes(host);
  rap_address_t address = {host, QVREXECD_PROGRAM, QVREXECD_VERSION, "tcp"};
  if (errobj_t *error = rap_env().authenticate(*client, address, attrs)) {
    clnt_auth_destroy(client);
    return error;
  }
  client->set_wait_mode(CLNT_WAIT_NONE);
  handle = make_network_resdb(attrs, true, false, std::move(client));
  return nullptr;
}

errobj_t *start_env_t::open_local(resdb_ptr &handle) {
  char host[NI_MAXHOST];
  return local_rap_open(ks_getlocalhost(host, sizeof host), handle);
}

void start_env_t::sleep_seconds(unsigned seconds) {
  ks_sleep_ms(seconds * 1000);
}

void start_env_t::start_session() {
  kstr_session_start(false);
}

void set_start_env(start_env_t *env) {
  current_env = env != nullptr ? env : &real_env;
}

start_env_t &start_env() {
  return *current_env;
}

}  // namespace qvr
