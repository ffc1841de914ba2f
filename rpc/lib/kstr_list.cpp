// From a credential to the list that a target may be bound with, and the connection to the target.
#include <netdb.h>

#include <cstring>

#include "auth_methods.h"
#include "clnt_create.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "kstr_auth.h"
#include "kstr_exchange.h"
#include "kstr_state.h"
#include "msg.h"
#include "pmap_lookup.h"
#include "progname.h"
#include "secrets.h"

namespace qvr {

namespace {

constexpr int mmdb_tries = 3;
constexpr std::int32_t told_codes_first = 240000, told_codes_last = 249999;

bool first_address(const std::string &host, sockaddr_storage &address) {
  addrinfo hints = {}, *found = nullptr;
  hints.ai_socktype = SOCK_STREAM;
  if (ks_inet_getaddrinfo(host.empty() ? nullptr : host.c_str(), nullptr, &hints, &found) != 0 ||
      found == nullptr) {
    return false;
  }
  address = {};
  std::memcpy(&address, found->ai_addr, std::min<std::size_t>(found->ai_addrlen, sizeof address));
  ks_inet_freeaddrinfo(found);
  return true;
}

errobj_t *make_list(const kstr_target &target, const std::string &blob, int application,
                    const attrlist &parameters, std::uint32_t wanted, kstr_cred_list &list) {
  sockaddr_storage address;
  std::uint32_t mask = AUTH_METHOD_ALL;
  if (first_address(target.host, address)) mask = auth_mask_for(address);
  mask &= wanted;
  errobj_t *failure = nullptr;
  if ((mask & AUTH_METHOD_GSS) != 0) {
    gss_request request;
    request.host = target.host;
    request.program = target.program;
    request.version = target.version;
    request.application = application;
    request.application_token = blob;
    for (const char *name : {"auth index", "VL auth server"}) {
      if (const std::string *value = attrlist_first(parameters, name)) {
        attrlist_set(request.attributes, name, *value);
      }
    }
    kstr_cred_entry entry;
    entry.kind = AUTH_KIND_GSS;
    failure = gss_acquire(request, entry.gss);
    if (failure == nullptr) {
      list.push_back(std::move(entry));
    } else {
      KS_DEBUG(1, "Failed to create kstr_auth credential for RPCSEC_GSS: %s\n",
               failure->text.c_str());
    }
    secret_wipe(request.application_token);
  }
  if ((mask & AUTH_METHOD_KSTR) != 0) {
    if (!blob.empty() && blob.size() + 8 <= OPAQUE_AUTH_MAX) {
      list.push_back({AUTH_KIND_KSTR, blob, nullptr});
    } else {
      errobj_t *error = err_from_table(2, RPC_AUTHERROR);
      if (failure != nullptr) {
        msg_print(146094, error->code, MSG_STDERR,
                  "Failed to create credential for AUTH_KSTR authentication: %s\n",
                  {msg_pair_t(error)});
      } else {
        KS_DEBUG(1, "Failed to create kstr_auth credential for AUTH_KSTR: %s\n",
                 error->text.c_str());
        failure = error;
      }
    }
  }
  return list.empty() ? failure : nullptr;
}

bool still_resolves(const std::string &host) {
  sockaddr_storage address;
  return first_address(host, address);
}

}  // namespace

errobj_t *kstr_auth_list(std::string_view server, CLIENT *client, std::string_view service,
                         const attrlist &parameters, int application, std::string_view key,
                         const auth_identity *override_identity, std::uint32_t mask,
                         kstr_cred_list &list, kstr_target &target) {
  list.clear();
  secret_text blob;
  if (errobj_t *error = kstr_auth(server, client, service, parameters, application, key,
                                  override_identity, mask, blob.get(), target)) {
    return error;
  }
  if (application < 0) {
    kstr_process_t &process = kstr_process();
    std::lock_guard lock(process.mutex);
    application = process.application;
  }
  return make_list(target, blob.get(), application, parameters, mask, list);
}

errobj_t *clnt_connect_target(const kstr_target &target, const kstr_cred_list &list, int send_size,
                              int receive_size, int tries, std::unique_ptr<CLIENT> &client,
                              const kstr_timeouts *timeouts) {
  auto program = static_cast<unsigned long>(target.program);
  auto version = static_cast<unsigned long>(target.version);
  client.reset();
  for (;; tries--) {
    client = clnt_create_host(target.host, target.program, target.version, target.protocol,
                              send_size, receive_size);
    if (client) break;
    errobj_t *error = clnt_create_error();
    if (tries <= 0 || !still_resolves(target.host)) {
      return err_create(141936, error->code, "Failed to connect to host '%s': %s",
                        {{MSG_ARG_HOST, target.host}, msg_pair_t(error)});
    }
    KS_DEBUG(1, "Create client handle for %s, %lu, %lu, %s failed, sleeping...\n",
             target.host.c_str(), program, version, target.protocol.c_str());
    get_kstr_clock().sleep(KSTR_PAUSE);
  }
  const std::string *encrypt = attrlist_first(target.attributes, "encrypt");
  bool encrypted = encrypt != nullptr && *encrypt == "True";
  if (timeouts != nullptr && timeouts->cancel.function != nullptr) {
    client->set_poll(timeouts->poll, timeouts->cancel);
  }
  std::uint32_t mask = client->auth_mask();
  AUTH *auth = clnt_bind_auth(*client, kstr_server(), &list, target.host, encrypted);
  client->set_auth_mask(mask);
  if (auth != nullptr) {
    client->set_reply_seen(true);
    return nullptr;
  }
  KS_DEBUG(1, "RPC Authentication: could not authenticate for %s, %lu, %lu, %s\n",
           target.host.c_str(), program, version, target.protocol.c_str());
  errobj_t *error = clnt_create_error();
  clnt_auth_destroy(client);
  char name[256];
  const char *service = rpc_program_name(target.program);
  return err_create(77571, error->code, "%s failed to authenticate with %s on host %s: %s",
                    {{MSG_ARG_PROGRAM, ks_get_progname(name, sizeof name)},
                     {MSG_ARG_PROGRAM, service != nullptr ? service : "unknown"},
                     {MSG_ARG_HOST, target.host},
                     msg_pair_t(error)});
}

errobj_t *kstr_mmdb_auth(std::string_view server, std::unique_ptr<CLIENT> &client,
                         kstr_target &target, const kstr_timeouts *timeouts) {
  attrlist parameters;
  attrlist_set(parameters, "auth mmdb preferred version", "6");
  attrlist_set(parameters, "auth server", server);
  kstr_cred_list list;
  errobj_t *error = kstr_auth_list(server, nullptr, "qvrmmdbd", parameters, -1, {}, nullptr,
                                   AUTH_METHOD_ALL, list, target);
  if (error != nullptr) {
    if (error->code >= told_codes_first && error->code <= told_codes_last) {
      msg_deliver(error, MSG_STDERR);
    } else {
      KS_DEBUG(1, "kstr_mmdb_auth auth failed: %s\n", error->text.c_str());
    }
    return error;
  }
  if (kstr_connection_encrypted()) {
    KS_DEBUG(4,
             "kstr_mmdb_auth: setting the encrypted connection to the media database daemon, "
             "qvrmmdbd.\n");
    attrlist_set(target.attributes, "encrypt", "True");
  }
  error = clnt_connect_target(target, list, 0, 0, mmdb_tries, client, timeouts);
  for (kstr_cred_entry &entry : list) secret_wipe(entry.blob);
  if (error != nullptr) {
    KS_DEBUG(1, "connect to mmdb prog %lu vers %lu on `%s' failed: %s\n",
             static_cast<unsigned long>(target.program), static_cast<unsigned long>(target.version),
             target.host.c_str(), error->text.c_str());
  }
  return error;
}

}  // namespace qvr
