// Asking an auth server for a credential, and renewing one.
#include "kstr_auth.h"

#include <charconv>

#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "kstr_blob.h"
#include "kstr_exchange.h"
#include "kstr_state.h"

namespace qvr {

namespace {

constexpr kstr_words auth_words = {"kstr_auth", "retyring"};
constexpr kstr_words reauth_words = {"kstr_reauth", "retrying"};

void read_number(const attrlist &parameters, std::string_view name, std::uint32_t &number) {
  const std::string *text = attrlist_first(parameters, name);
  if (text == nullptr) return;
  std::uint32_t value = 0;
  auto [stop, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error == std::errc() && stop == text->data() + text->size()) number = value;
}

// -1 and -2, and an empty key, stand for the process's. False with no application number to be had.
bool resolve_application(int &application, std::string &key) {
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  if (application == -1 || application == -2) application = process.application;
  if (key.empty()) key = process.key;
  return application >= 0;
}

kstr_local_server_t local_server() {
  kstr_process_t &process = kstr_process();
  std::lock_guard lock(process.mutex);
  return process.local_server;
}

std::string first_host(const std::string &server) {
  return server.empty() || ks_is_local_host(server.c_str()) ? std::string() : server;
}

// Hands over what was granted. An error object or null.
errobj_t *take_grant(kstr_result &result, bool local, std::string_view key,
                     std::string &credential) {
  if (!result.credential) {
    return err_create(186652, 25007, "The authentication credential was NULL.\n");
  }
  credential = std::move(*result.credential);
  return local ? nullptr : kstr_blob_decode(credential, key);
}

}  // namespace

errobj_t *kstr_auth(std::string_view server, CLIENT *client, std::string_view service,
                    const attrlist &parameters, int application, std::string_view key_given,
                    const auth_identity *override_identity, std::uint32_t mask,
                    std::string &credential, kstr_target &target) {
  std::string host(server.data() != nullptr ? std::string(server) : kstr_server());
  std::string name(service), key(key_given);
  kstr_set_thread_server(host, service);
  if (!resolve_application(application, key)) return err_from_table(2, RPC_AUTHERROR);

  std::vector<auth_identity> identities;
  if (override_identity != nullptr) identities.push_back(*override_identity);
  identities.push_back(build_kstrauth_parms(service, server, parameters,
                                            static_cast<std::uint32_t>(application),
                                            override_identity != nullptr));
  kstr_exchange exchange;
  exchange.words = &auth_words;
  exchange.passed_in = client;
  exchange.target.host = first_host(host);
  exchange.local_name = host;
  exchange.target.program = KSTR_PROGRAM;
  exchange.target.version = KSTR_VERSION;
  read_number(parameters, "auth program number", exchange.target.program);
  read_number(parameters, "auth version number", exchange.target.version);
  exchange.mask = mask;
  exchange.application = application;
  exchange.before = [&](const std::string &at) {
    attrlist_set(identities.back().attributes, "auth server", at);
  };
  exchange.arguments = [&](XDR &xdr) {
    return xdr.put_counted(name) && xdr.put_bool(true) && xdr_put_identities(xdr, identities);
  };
  if (auto local = local_server()) {
    exchange.local = [&, local](kstr_result &result) {
      return local(KSTR_PROC_AUTH, name, identities, {}, result);
    };
  }
  kstr_result result;
  errobj_t *error = exchange.run(result);
  if (error == nullptr) {
    error = take_grant(result, exchange.answered_locally(), key, credential);
    if (result.target) target = std::move(*result.target);
  }
  if (error != nullptr) {
    KS_DEBUG(1, "kstr_auth for `%s' failed: %s\n", name.c_str(), error->text.c_str());
  } else {
    KS_DEBUG(2, "kstr_auth for `%s' succeeded\n", name.c_str());
  }
  return error;
}

errobj_t *kstr_reauth(std::string_view server, CLIENT *client, std::string &blob) {
  std::string issuer = kstr_blob_server(blob);
  std::string key;
  int application = -1;
  if (blob.empty()) {
    std::string service = kstr_thread().service;
    kstr_target ignored;
    return kstr_auth(server.empty() ? std::string_view() : server, client,
                     service.empty() ? "qvrstat" : service, {}, -1, {}, nullptr, AUTH_METHOD_ALL,
                     blob, ignored);
  }
  if (!resolve_application(application, key)) return err_from_table(2, RPC_AUTHERROR);

  std::string host(server.empty() ? std::string_view(issuer) : server);
  kstr_exchange exchange;
  exchange.procedure = KSTR_PROC_REAUTH;
  exchange.words = &reauth_words;
  exchange.passed_in = client;
  exchange.target.host = first_host(host);
  exchange.local_name = host;
  exchange.target.program = KSTR_PROGRAM;
  exchange.target.version = KSTR_VERSION;
  exchange.application = application;
  exchange.other_server = issuer;
  exchange.arguments = [&](XDR &xdr) { return xdr.put_bool(true) && xdr.put_counted(blob); };
  if (auto local = local_server()) {
    exchange.local = [&, local](kstr_result &result) {
      return local(KSTR_PROC_REAUTH, {}, {}, blob, result);
    };
  }
  kstr_result result;
  if (errobj_t *error = exchange.run(result)) return error;
  return take_grant(result, exchange.answered_locally(), key, blob);
}

}  // namespace qvr
