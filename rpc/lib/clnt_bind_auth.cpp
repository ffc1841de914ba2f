// Attaching a flavour to a handle, the strongest first.
#include "auth_kstr.h"
#include "auth_unix.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "kstr_auth.h"
#include "msg.h"

namespace qvr {

namespace {

// The peer does not respond, or the session key is not there: a weaker flavour would not help.
bool final_failure() {
  const rpc_create_err_t &create = clnt_create_err();
  return create.status == RPC_TIMEDOUT ||
         (create.status == RPC_AUTHERROR && create.error.why == AUTH_GSS_CREDPROBLEM);
}

struct binding {
  CLIENT &client;
  std::string_view server, target_name;
  std::uint32_t mask;
  bool encrypted;

  bool allows(auth_method method) const { return (mask & method) != 0; }
  bool take(std::unique_ptr<AUTH> auth) const {
    if (!auth) return false;
    client.auth = std::move(auth);
    return true;
  }
  // The handshake runs under its own AUTH on the handle; what it leaves there goes.
  bool take_gss(const gss_credential_ptr &credential) const {
    auto auth = gss_bind(client, target_name, credential, encrypted);
    if (!auth) client.auth.reset();
    return take(std::move(auth));
  }

  // True when the search ends, bound or not.
  bool without_list() const;
  bool with_list(const kstr_cred_list &list) const;
  void weakest() const;
};

void tell_fallback() {
  if (debug_words.verbosity.load(std::memory_order_relaxed) < 2 && !debug_on(1)) return;
  msg_print(101036, 22007, MSG_STDERR,
            "Falling back to a weaker RPC authentication flavor since GSS authentication failed: "
            "%s\n",
            {{MSG_ARG_ERRTEXT, clnt_create_error_text()}});
}

bool binding::without_list() const {
  if (allows(AUTH_METHOD_GSS)) {
    if (take_gss(nullptr) || final_failure()) return true;
    if ((mask & (AUTH_METHOD_KSTR | AUTH_METHOD_UNIX | AUTH_METHOD_NONE)) != 0) tell_fallback();
  }
  return allows(AUTH_METHOD_KSTR) && take(authkstr_create(client, server, nullptr));
}

bool binding::with_list(const kstr_cred_list &list) const {
  for (const kstr_cred_entry &entry : list) {
    if (entry.kind == AUTH_KIND_GSS && allows(AUTH_METHOD_GSS)) {
      if (take_gss(entry.gss) || final_failure()) return true;
      if ((mask & (AUTH_METHOD_KSTR | AUTH_METHOD_UNIX | AUTH_METHOD_NONE)) != 0) tell_fallback();
    } else if (entry.kind == AUTH_KIND_KSTR && allows(AUTH_METHOD_KSTR)) {
      if (take(authkstr_create(client, server, &entry.blob))) return true;
    }
  }
  return false;
}

void binding::weakest() const {
  if (allows(AUTH_METHOD_UNIX) && take(authunix_create())) return;
  if (allows(AUTH_METHOD_NONE)) take(authnone_create());
}

}  // namespace

AUTH *clnt_bind_auth(CLIENT &client, std::string_view server, const kstr_cred_list *list,
                     std::string_view target_name, bool encrypted) {
  client.auth.reset();
  // What stands here when no flavour may be tried at all.
  set_create_err(RPC_AUTHERROR, AUTH_TOOWEAK);
  std::uint32_t mask = client.auth_mask();
  if (encrypted) mask &= AUTH_METHOD_GSS;
  if (mask == 0) return nullptr;
  client.set_reply_seen(false);
  binding bind{client, server, target_name, mask, encrypted};
  bool ended = list != nullptr ? bind.with_list(*list) : bind.without_list();
  if (!ended) bind.weakest();
  return client.auth.get();
}

}  // namespace qvr
