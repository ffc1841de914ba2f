#include "kstr_exchange.h"

#include "clnt_create.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "kstr_state.h"

namespace qvr {

namespace {

constexpr std::chrono::seconds call_timeout{25};
constexpr std::int32_t quiet_code = -13;
constexpr int expected_severity = 3;
constexpr int rap_unknown_application = 33;

bool expected(std::int32_t code) {
  return err_severity(code) == expected_severity || code == quiet_code;
}

const char *daemon_name(std::uint32_t program) {
  return program == KSTR_PROGRAM ? "qvrexecd" : "qvrd";
}

bool worth_another(std::int32_t code, bool passed_in) {
  if (expected(code) || err_severity(code) == 4) return true;
  // A server without the procedure, or without the operation, leaves the way by a connection of
  // one's own.
  return passed_in && (err_is(code, 2, 10) || err_is(code, 3, 1));
}

// A borrowed handle gets its mask back when the attempt is over. Until then the smaller mask also
// bounds a fallback during the call, which must not ask for the credential that is being asked for.
struct mask_guard {
  CLIENT *client;
  std::uint32_t mask = client != nullptr ? client->auth_mask() : 0;
  ~mask_guard() {
    if (client != nullptr) client->set_auth_mask(mask);
  }
};

}  // namespace

kstr_verdict kstr_judge(std::int32_t code, bool passed_in, int round) {
  if (!worth_another(code, passed_in) || round + 1 > KSTR_LAST_ROUND) return kstr_verdict::give_up;
  if (!passed_in) return kstr_verdict::new_connection;
  return expected(code) ? kstr_verdict::same_connection : kstr_verdict::fall_back;
}

kstr_exchange::outcome kstr_exchange::open() {
  own_ = clnt_create_simple(target.host, target.program, target.version, "tcp");
  if (own_) {
    std::chrono::seconds timeout;
    {
      kstr_process_t &process = kstr_process();
      std::lock_guard lock(process.mutex);
      timeout = process.timeout;
    }
    own_->set_timeout(timeout);
    return bind(*own_, true);
  }
  errobj_t *error = clnt_create_error();
  keep(err_create(165598, error->code, "Unable to connect to %s on host %s for RAP credentials: %s",
                  {{MSG_ARG_PROGRAM, daemon_name(target.program)},
                   {MSG_ARG_HOST, shown_host()},
                   msg_pair_t(error)}));
  return outcome::ended;
}

// The auth server is never reached with AUTH_KSTR: that is what it is asked for.
kstr_exchange::outcome kstr_exchange::bind(CLIENT &client, bool own) {
  if (!own && client.auth && client.auth->kind() != AUTH_KIND_NONE) return outcome::answered;
  std::uint32_t allowed = client.auth_mask() & ~std::uint32_t{AUTH_METHOD_KSTR} & mask;
  kstr_cred_list list;
  if ((allowed & AUTH_METHOD_GSS) != 0) {
    gss_request request;
    request.host = shown_host();
    request.program = target.program;
    request.version = target.version;
    request.application = application;
    kstr_cred_entry entry;
    entry.kind = AUTH_KIND_GSS;
    errobj_t *error = gss_acquire(request, entry.gss);
    if (error == nullptr) {
      list.push_back(std::move(entry));
    } else {
      if (!expected(error->code)) KS_DEBUG(1, "%s\n", error->text.c_str());
      allowed &= ~std::uint32_t{AUTH_METHOD_GSS};
      if ((allowed & (AUTH_METHOD_UNIX | AUTH_METHOD_NONE)) == 0) {
        keep(error);
        return expected(error->code) ? outcome::failed : outcome::ended;
      }
    }
  }
  client.set_auth_mask(allowed);
  if (clnt_bind_auth(client, shown_host(), list.empty() ? nullptr : &list, shown_host(), false) !=
      nullptr) {
    return outcome::answered;
  }
  errobj_t *error = clnt_create_error();
  if (expected(error->code)) {
    keep(error);
    return outcome::failed;
  }
  keep(err_create(165599, error->code,
                  "Unable to authenticate with %s on host %s for RAP credentials: %s",
                  {{MSG_ARG_PROGRAM, daemon_name(target.program)},
                   {MSG_ARG_HOST, shown_host()},
                   msg_pair_t(error)}));
  return outcome::ended;
}

kstr_exchange::outcome kstr_exchange::attempt(kstr_result &result) {
  if (before) before(target.host.empty() && !local_name.empty() ? local_name : shown_host());
  answered_locally_ = target.host.empty() && local;
  if (answered_locally_) {
    errobj_t *error = local(result);
    if (error == nullptr) return outcome::answered;
    keep(error);
    return outcome::failed;
  }
  mask_guard guard{passed_in};
  outcome bound = passed_in != nullptr ? bind(*passed_in, false) : open();
  if (bound != outcome::answered) return bound;
  CLIENT &client = passed_in != nullptr ? *passed_in : *own_;
  clnt_stat status = client.call(
      procedure, [&](XDR &xdr) { return arguments(xdr); },
      [&](XDR &xdr) { return xdr_get_kstr_result(xdr, result); }, call_timeout);
  if (status == RPC_SUCCESS) return outcome::answered;
  keep(clnt_error(client));
  return outcome::failed;
}

// A redirect: closes what is open and names the next server.
void kstr_exchange::follow(kstr_result &result) {
  target = std::move(*result.target);
  passed_in = nullptr;
  own_.reset();
  KS_DEBUG(3, "%s: redirected to %s prog %lu vers %lu\n", words->name, target.host.c_str(),
           static_cast<unsigned long>(target.program), static_cast<unsigned long>(target.version));
}

bool kstr_exchange::move_to_other() {
  if (other_server.empty() || other_server == target.host ||
      err_number(pending_->code) != rap_unknown_application) {
    return false;
  }
  KS_DEBUG(1, "Cannot auth with %s (%s), trying %s\n", shown_host().c_str(), pending_->text.c_str(),
           other_server.c_str());
  target.host = std::move(other_server);
  other_server.clear();
  passed_in = nullptr;
  own_.reset();
  return true;
}

errobj_t *kstr_exchange::run(kstr_result &result) {
  int redirects = 0;
  for (int round = passed_in != nullptr ? -1 : 0;; round++) {
    pending_.reset();
    result = {};
    outcome end = attempt(result);
    if (end == outcome::answered && result.tag == 3) {
      if (redirects++ == KSTR_REDIRECTS_MAX) {
        return err_create(0, 25007, "Too many redirects between auth servers, the last to %s",
                          {{MSG_ARG_HOST, result.target->host}});
      }
      follow(result);
      round = -2;  // the rounds begin anew, at -1 like those of a borrowed handle
      continue;
    }
    if (end == outcome::answered) {
      if (result.tag != 2 && (result.credential || result.error == nullptr)) return nullptr;
      keep(result.error != nullptr ? result.error : err_from_table(2, RPC_AUTHERROR));
    }
    if (end == outcome::ended) return err_dup(&*pending_);
    if (move_to_other()) {
      round--;
      continue;
    }
    const char *text = pending_->text.c_str();
    switch (kstr_judge(pending_->code, passed_in != nullptr, round)) {
      case kstr_verdict::give_up:
        return err_dup(&*pending_);
      case kstr_verdict::new_connection:
        KS_DEBUG(3, "%s %s: %s\n", words->retrying, words->name, text);
        get_kstr_clock().sleep(KSTR_PAUSE);
        own_.reset();
        break;
      case kstr_verdict::same_connection:
        KS_DEBUG(3, "%s retry: %s\n", words->name, text);
        get_kstr_clock().sleep(KSTR_PAUSE);
        break;
      case kstr_verdict::fall_back:
        KS_DEBUG(3, "%s falling back: %s\n", words->name, text);
        passed_in = nullptr;
        break;
    }
  }
}

}  // namespace qvr
