// Obtaining a credential from an auth server, and connecting to the daemon that it names.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "auth_identity.h"
#include "client.h"
#include "errobj.h"
#include "gss_hooks.h"

namespace qvr {

inline constexpr std::uint32_t KSTR_PROGRAM = 390113;
inline constexpr std::uint32_t KSTR_VERSION = 1;
enum kstr_procedure : std::uint32_t {
  KSTR_PROC_CHALLENGE = 123,
  KSTR_PROC_AUTH = 124,
  KSTR_PROC_REAUTH = 125,
};

// Where a service lives.
struct kstr_target {
  std::string host;
  std::uint32_t program = 0;
  std::uint32_t version = 0;
  std::string protocol;
  attrlist attributes;
};
bool xdr_put_target(XDR &xdr, const kstr_target &target);
bool xdr_get_target(XDR &xdr, kstr_target &target);

// The union that procedures 124 and 125 answer with.
struct kstr_result {
  std::uint32_t tag = 0;  // 0 granted, 1 granted with an error, 2 refused, 3 redirect
  std::optional<std::string> credential;
  std::optional<kstr_target> target;
  errobj_t *error = nullptr;  // in the thread's ring
};
bool xdr_put_kstr_result(XDR &xdr, const kstr_result &result);
bool xdr_get_kstr_result(XDR &xdr, kstr_result &result);

// What a connection to a daemon is bound with, in order of preference.
struct kstr_cred_entry {
  int kind = 0;      // an auth_kind: 3 `blob`, 4 `gss`
  std::string blob;  // decoded
  gss_credential_ptr gss;
};
using kstr_cred_list = std::vector<kstr_cred_entry>;

// How a wait between two attempts goes by; a test turns its own clock.
class kstr_clock {
 public:
  virtual ~kstr_clock() = default;
  virtual void sleep(std::chrono::seconds time) const;
  virtual std::int64_t now() const;
};
// The process's; null goes back to the real one. For tests.
void set_kstr_clock(const kstr_clock *clock);
const kstr_clock &get_kstr_clock();

// Process-wide settings, set once at start. An application number of -1 is unset.
void kstr_set_application(int number, std::string_view key);
void kstr_set_server(std::string_view server);
void kstr_set_timeout(std::chrono::seconds timeout);
void kstr_set_token(std::string_view token);
void kstr_set_session_tickets(const attrlist &tickets);
void kstr_set_connection_encrypted(bool on);
bool kstr_connection_encrypted();
// Settings of the calling thread; an empty one falls back on the process's.
void kstr_set_thread_server(std::string_view server, std::string_view service);
void kstr_set_thread_user(std::string_view user);
void kstr_set_thread_token(std::string_view token);
void kstr_set_thread_ldap(const attrlist &attributes);
std::string kstr_server();
// A daemon that holds the auth server itself answers in place of a connection to this host:
// procedure and, for 124, service and identities, or for 125 the credential, in; the result out.
using kstr_local_server_t =
    std::function<errobj_t *(std::uint32_t procedure, const std::string &service,
                             const std::vector<auth_identity> &identities,
                             const std::string &credential, kstr_result &result)>;
void kstr_set_local_server(kstr_local_server_t server);

// The identity part of kstr_auth: this process's and user's own record, with the attributes of
// `parameters`, and the session ticket or token. An empty `for_server`: none was named.
auth_identity build_kstrauth_parms(std::string_view service, std::string_view for_server,
                                   const attrlist &parameters, std::uint32_t application,
                                   bool overridden, const identity_source *source = nullptr);

// Asks `server` (null data: the one set earlier) for a credential for `service`. `client`: an open
// handle to the auth server, or null. `application` -1 and -2, and an empty `key`, take the
// process's. `override_identity`: put in front of this process's own. `mask`: flavours that may be
// used towards the auth server. An error object or null.
errobj_t *kstr_auth(std::string_view server, CLIENT *client, std::string_view service,
                    const attrlist &parameters, int application, std::string_view key,
                    const auth_identity *override_identity, std::uint32_t mask,
                    std::string &credential, kstr_target &target);
// The same, and then the list of credentials that the target may be bound with.
errobj_t *kstr_auth_list(std::string_view server, CLIENT *client, std::string_view service,
                         const attrlist &parameters, int application, std::string_view key,
                         const auth_identity *override_identity, std::uint32_t mask,
                         kstr_cred_list &list, kstr_target &target);
// Renews `blob` with the server that it names. An error object or null.
errobj_t *kstr_reauth(std::string_view server, CLIENT *client, std::string &blob);

// Attaches the best flavour that list and mask allow. The handle owns it; the result borrows it, or
// is null with the create error set. A null list means that there is none.
AUTH *clnt_bind_auth(CLIENT &client, std::string_view server, const kstr_cred_list *list,
                     std::string_view target_name, bool encrypted);

struct kstr_timeouts {
  std::chrono::microseconds poll{0};
  clnt_cancel_t cancel;
};
// Connects to the target, with `tries` more attempts 10 seconds apart, and binds. An error object
// or null.
errobj_t *clnt_connect_target(const kstr_target &target, const kstr_cred_list &list, int send_size,
                              int receive_size, int tries, std::unique_ptr<CLIENT> &client,
                              const kstr_timeouts *timeouts = nullptr);

// The media database's use of all this: asks `server` for it, connects, binds. `target` tells what
// was connected to. An error object or null.
errobj_t *kstr_mmdb_auth(std::string_view server, std::unique_ptr<CLIENT> &client,
                         kstr_target &target, const kstr_timeouts *timeouts = nullptr);

}  // namespace qvr
