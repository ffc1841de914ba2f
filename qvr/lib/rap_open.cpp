// Opening a network resource database.
#include <charconv>

#include "clnt_error.h"
#include "err_class.h"
#include "msg.h"
#include "rap_env.h"
#include "rap_network.h"
#include "rap_protocol.h"

namespace qvr {

namespace {

// Numbers of the class of resource errors.
constexpr int NO_HOST = 7;
constexpr int NO_VERSION = 8;
constexpr int NO_PROGRAM = 9;

int auth_attempts = RAP_AUTH_ATTEMPTS;

std::string text_of(const attrlist &attrs, std::string_view name) {
  const std::string *value = attrlist_first(attrs, name);
  return value != nullptr ? *value : std::string();
}

bool number_of(const attrlist &attrs, std::string_view name, std::uint32_t &number) {
  const std::string *value = attrlist_first(attrs, name);
  if (value == nullptr) return false;
  return std::from_chars(value->data(), value->data() + value->size(), number).ec == std::errc();
}

errobj_t *read_address(const attrlist &attrs, rap_address_t &address) {
  address.host = text_of(attrs, "hostname");
  if (address.host.empty()) return err_from_table(ERR_RAP, NO_HOST);
  if (!number_of(attrs, "ONC program number", address.program))
    return err_from_table(ERR_RAP, NO_PROGRAM);
  if (!number_of(attrs, "ONC version number", address.version))
    return err_from_table(ERR_RAP, NO_VERSION);
  address.transport = text_of(attrs, "ONC transport");
  if (address.transport.empty()) address.transport = "tcp";
  return nullptr;
}

// Failures that the next attempt may not meet: a peer that did not answer in time, and one that
// holds no session key yet.
bool worth_another(const errobj_t &error) {
  return err_is(error.code, ERR_RPC, RPC_TIMEDOUT) ||
         (err_is(error.code, ERR_RPC, RPC_AUTHERROR) &&
          clnt_create_err().error.why == AUTH_GSS_CREDPROBLEM);
}

errobj_t *authenticate(CLIENT &client, const rap_address_t &address, const attrlist &attrs) {
  errobj_t *error = nullptr;
  for (int attempt = 0; attempt < auth_attempts; attempt++) {
    set_create_err(RPC_SUCCESS);
    error = rap_env().authenticate(client, address, attrs);
    if (error == nullptr || !worth_another(*error)) break;
    msg_print(91512, error->code, MSG_STDERR,
              "Unable to authenticate with server '%s' during RAP bind operation: %s\n",
              {{MSG_ARG_HOST, address.host}, {MSG_ARG_ERRTEXT, error->text}});
  }
  if (error == nullptr) return nullptr;
  std::string why = error->text;
  return err_create(77528, 25007, "Unable to authenticate with server %s: %s",
                    {{MSG_ARG_HOST, address.host}, {MSG_ARG_ERRTEXT, why}});
}

errobj_t *bind(const rap_address_t &address, const attrlist &attrs,
               std::unique_ptr<CLIENT> &client) {
  client = rap_env().create(address);
  if (client == nullptr) return clnt_create_error();
  std::string user = text_of(attrs, "login");
  errobj_t *error = user.empty()
                        ? authenticate(*client, address, attrs)
                        : rap_env().login(*client, address, user, text_of(attrs, "password"),
                                          text_of(attrs, "domain"));
  if (error == nullptr && rap_env().wants_encryption() && !client->encrypted() &&
      !rap_env().turn_on_encryption(*client)) {
    error = err_create(2446, 25007,
                       "Encryption required by server, but client failed to turn on encryption");
  }
  if (error != nullptr) {
    clnt_auth_destroy(client);
    return error;
  }
  client->set_wait_mode(CLNT_WAIT_NONE);
  return nullptr;
}

errobj_t *open_known(std::string_view host, std::uint32_t program, std::uint32_t version,
                     resdb_ptr &handle) {
  std::string program_text = std::to_string(program), version_text = std::to_string(version);
  attrlist attrs = attrlist_build({{"hostname", {host}},
                                   {"ONC program number", {program_text}},
                                   {"auth program number", {program_text}},
                                   {"ONC version number", {version_text}},
                                   {"auth version number", {version_text}}});
  return resdb_open(&attrs, true, false, &handle);
}

}  // namespace

void rap_set_auth_attempts(int attempts) {
  auth_attempts = attempts > 0 ? attempts : 1;
}

errobj_t *resdb_open(const attrlist *attrs, bool flag_a, bool flag_b, resdb_ptr *handle) {
  if (handle == nullptr) {
    return err_create(85150, 35017,
                      "Unable to create a network based resource database handle: the resource "
                      "database handle pointer passed is null.");
  }
  handle->reset();
  if (attrs == nullptr || attrs->empty()) {
    return err_create(85151, 35020,
                      "Unable to create a network based resource database handle: the RAP database "
                      "server is null.");
  }
  rap_address_t address;
  std::unique_ptr<CLIENT> client;
  if (errobj_t *error = read_address(*attrs, address)) return error;
  if (errobj_t *error = bind(address, *attrs, client)) return error;
  *handle = make_network_resdb(*attrs, flag_a, flag_b, std::move(client));
  return nullptr;
}

errobj_t *server_rap_open(std::string_view host, resdb_ptr &handle) {
  return open_known(host, QVRD_PROGRAM, QVRD_VERSION, handle);
}

errobj_t *local_rap_open(std::string_view host, resdb_ptr &handle) {
  return open_known(host, QVREXECD_PROGRAM, QVREXECD_VERSION, handle);
}

}  // namespace qvr
