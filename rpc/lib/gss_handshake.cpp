// Establishing an RPCSEC_GSS handle: tokens back and forth, the application token, the channel.
#include <netinet/in.h>

#include <cerrno>
#include <utility>

#include "auth_gss.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "ks_wrappers.h"
#include "kstr_auth.h"
#include "kstr_state.h"
#include "msg.h"
#include "rpc_state.h"

namespace qvr {

namespace {

constexpr std::chrono::seconds init_timeout{30};
constexpr std::chrono::seconds app_token_timeout{5};
constexpr int session_key_severity = 3;

// The handle's time-out is its own again when the handshake is over.
class timeout_guard {
 public:
  explicit timeout_guard(CLIENT &client)
      : client_(client), timeout_(client.timeout()), mode_(client.wait_mode()) {}
  ~timeout_guard() {
    if (mode_ == CLNT_WAIT_FOREVER) {
      client_.set_no_timeout();
    } else {
      client_.set_timeout(timeout_);
      client_.set_wait_mode(mode_);
    }
  }
  timeout_guard(const timeout_guard &) = delete;
  timeout_guard &operator=(const timeout_guard &) = delete;

 private:
  CLIENT &client_;
  std::chrono::microseconds timeout_;
  clnt_wait_mode mode_;
};

// No fallback to another flavour while this one is being established.
class reply_seen_guard {
 public:
  explicit reply_seen_guard(CLIENT &client) : client_(client), seen_(client.reply_seen()) {
    client.set_reply_seen(true);
  }
  ~reply_seen_guard() { client_.set_reply_seen(seen_); }
  reply_seen_guard(const reply_seen_guard &) = delete;
  reply_seen_guard &operator=(const reply_seen_guard &) = delete;

 private:
  CLIENT &client_;
  bool seen_;
};

std::chrono::seconds session_timeout() {
  rpc_global_t &global = rpc_global();
  std::lock_guard lock(global.mutex);
  return global.session_timeout;
}

bool target_of(const CLIENT &client, std::string_view given, std::string &host) {
  host = given;
  if (!host.empty()) return true;
  const sockaddr_storage &peer = client.peer();
  const void *address = &reinterpret_cast<const sockaddr_in &>(peer).sin_addr;
  if (peer.ss_family == AF_INET6) {
    address = &reinterpret_cast<const sockaddr_in6 &>(peer).sin6_addr;
  }
  char text[KS_ADDRESS_TEXT];
  if (const char *name = ks_inet_ntop(address, text, peer.ss_family)) {
    host = name;
    return true;
  }
  KS_DEBUG(1, "authgss_create: Call to ks_inet_ntop() failed: %s\n", ks_strerror(errno));
  set_create_err(RPC_UNKNOWNADDR);
  return false;
}

// How a failure to have something to present ends the handshake, `why` when it says nothing itself.
void keep_reason(const errobj_t &error, int why) {
  if (err_severity(error.code) == session_key_severity) {
    set_create_err(RPC_AUTHERROR, AUTH_GSS_CREDPROBLEM);
  } else if (clnt_create_err().status == RPC_SUCCESS) {
    set_create_err(RPC_AUTHERROR, why);
  }
}

std::shared_ptr<gss_cred> acquire_for(const CLIENT &client, const std::string &host) {
  gss_target target;
  target.name = host;
  target.program = client.program();
  target.version = client.version();
  {
    kstr_process_t &process = kstr_process();
    std::lock_guard lock(process.mutex);
    target.application = process.application;
  }
  std::shared_ptr<gss_cred> cred;
  set_create_err(RPC_SUCCESS);
  errobj_t *error = gss_acquire_cred(GSS_INITIATE, target, cred);
  if (error == nullptr) return cred;
  keep_reason(*error, AUTH_REJECTEDCRED);
  return nullptr;
}

bool encode_app_token(const gss_app_token &token, std::string &bytes) {
  // All its room first: where a string grows, it leaves a copy behind.
  xdr_memory_writer out;
  std::string room(token.bytes.size() + 16, '\0');
  bool encoded = out.put_bytes(room.data(), room.size()) && out.set_position(xdr_op::encode, 0) &&
                 xdr_put_app_token(out, token);
  bytes = out.take();
  return encoded;
}

// The handshake, under its own AUTH on the handle, which gets its earlier one back.
std::unique_ptr<AUTH> shake_hands(CLIENT &client, std::string host,
                                  std::shared_ptr<gss_cred> cred) {
  timeout_guard timeouts(client);
  reply_seen_guard seen(client);
  client.set_timeout(session_timeout());
  auto auth = std::make_unique<auth_gss>(client, std::move(host), std::move(cred));
  auth_gss &mine = *auth;
  std::unique_ptr<AUTH> earlier = std::exchange(client.auth, std::move(auth));
  set_create_err(RPC_SUCCESS);
  bool done = mine.establish();
  std::unique_ptr<AUTH> made = std::exchange(client.auth, std::move(earlier));
  if (!done) made.reset();
  return made;
}

}  // namespace

bool auth_gss::fail(int why) const {
  set_create_err(RPC_AUTHERROR, why);
  return false;
}

// Sends a token and takes what comes back for it.
bool auth_gss::exchange(round_t &round, bool first) {
  body_.proc = first ? RPCSEC_GSS_INIT : RPCSEC_GSS_CONTINUE_INIT;
  gss_init_args args;
  args.token = std::move(round.output);
  args.app_token_follows = wants_app_token();
  args.channel_wanted = client_.encrypted();
  bool silent = (round.flags & GSS_FLAG_NO_REPLY) != 0;
  auto put = [&](XDR &xdr) { return xdr_put_gss_init_args(xdr, args); };
  auto get = [&](XDR &xdr) { return xdr_get_gss_init_result(xdr, result_); };
  clnt_stat status;
  result_ = {};
  if (silent) {
    client_.set_timeout(std::chrono::microseconds{0});
    status = client_.call(0, put, {}, std::chrono::microseconds{0});
    client_.set_timeout(session_timeout());
  } else {
    status = client_.call(0, put, get, init_timeout);
  }
  secret_wipe(args.token);
  if (status != RPC_SUCCESS) {
    set_create_err(client_.last_error());
    return false;
  }
  if (silent) {
    if (round.major == GSS_COMPLETE) return true;
    KS_UNEXPECTED(
        "We are not expecting a reply from the server because we are in non-blocking mode");
    return fail(AUTH_FAILED);
  }
  if (result_.handle.empty() ||
      (result_.major != GSS_COMPLETE && result_.major != GSS_CONTINUE_NEEDED)) {
    return fail(AUTH_REJECTEDCRED);
  }
  body_.handle = result_.handle;
  return true;
}

bool auth_gss::establish() {
  establishing_ = true;
  // One that cannot be sent keeps the handshake from beginning.
  secret_text app_token;
  if (wants_app_token() && !encode_app_token(cred_->app_token, app_token.get())) {
    return fail(AUTH_FAILED);
  }
  round_t round;
  std::string input;
  bool peer_done = false;
  for (bool first = true;; first = false) {
    std::uint32_t lifetime = 0;
    errobj_t *error = gss_init_sec_context(*cred_, *context_, input, round.output, lifetime,
                                           round.major, round.flags);
    secret_wipe(input);
    if (error != nullptr) {
      KS_DEBUG(2, "%s\n", error->text.c_str());
      return fail(AUTH_GSS_CTXPROBLEM);
    }
    if (lifetime != GSS_LIFETIME_FOREVER && lifetime != 0) {
      expiry_ = channel_->expiry = get_kstr_clock().now() + lifetime;
    }
    // A peer that is done expects nothing more.
    if (peer_done) {
      if (round.major == GSS_COMPLETE && round.output.empty()) break;
      return fail(AUTH_FAILED);
    }
    if (round.output.empty()) return fail(AUTH_GSS_CTXPROBLEM);
    if (!exchange(round, first)) return false;
    if ((round.flags & GSS_FLAG_NO_REPLY) != 0) break;
    peer_done = result_.major == GSS_COMPLETE;
    input = std::move(result_.token);
    if (round.major == GSS_COMPLETE) {
      if (peer_done && input.empty()) break;
      return fail(AUTH_FAILED);
    }
    if (peer_done && input.empty()) return fail(AUTH_FAILED);
  }
  if (wants_app_token() && !send_app_token(app_token.get())) return false;
  establishing_ = false;
  established_ = true;
  body_.proc = RPCSEC_GSS_DATA;
  return !client_.encrypted() || turn_on();
}

bool auth_gss::send_app_token(std::string_view plain) {
  gss_buffer wrapped;
  errobj_t *error = gss_wrap(*context_, plain, wrapped);
  if (error == nullptr && wrapped.size > GSS_BYTES_MAX) {
    error = err_create(0, GSS_FAILED_CODE, "The application token is too long");
  }
  if (error != nullptr) {
    keep_reason(*error, AUTH_FAILED);
    KS_DEBUG(1, "Failed to authenticate using RPCSEC_GSS. Could not send application token: %s\n",
             error->text.c_str());
    return false;
  }
  body_.proc = RPCSEC_GSS_APP_TOKEN;
  gss_init_args args;
  args.token = wrapped.view();
  args.app_token_follows = true;
  args.channel_wanted = client_.encrypted();
  clnt_stat status = client_.call(
      0, [&](XDR &xdr) { return xdr_put_gss_init_args(xdr, args); }, {}, app_token_timeout);
  if (status == RPC_SUCCESS) return true;
  KS_DEBUG(1, "Failed to authenticate using RPCSEC_GSS. Could not send application token: %s\n",
           clnt_error_text(client_).c_str());
  set_create_err(client_.last_error());
  return false;
}

bool auth_gss::turn_on() {
  xdr_record_stream *stream = client_.stream();
  if (stream != nullptr && stream->crypt_on(gss_channel_ops(channel_))) {
    channel_on_ = true;
    return true;
  }
  msg_print(935, 23007, MSG_STDERR, "Could not turn on encryption\n");
  return fail(AUTH_FAILED);
}

bool auth_gss::set_channel(bool on) {
  xdr_record_stream *stream = client_.stream();
  if (!established_ || !context_ || stream == nullptr || on == channel_on_) return false;
  {
    timeout_guard timeouts(client_);
    client_.set_timeout(std::chrono::microseconds{0});
    body_.proc = RPCSEC_GSS_CHANNEL;
    clnt_stat status = client_.call(
        0, [&](XDR &xdr) { return xdr.put_bool(on); }, {}, std::chrono::seconds{0});
    body_.proc = RPCSEC_GSS_DATA;
    if (status != RPC_SUCCESS) return false;
  }
  if (on) {
    client_.set_encrypted();
    channel_on_ = stream->crypt_on(gss_channel_ops(channel_));
    return channel_on_;
  }
  if (!stream->crypt_off(nullptr)) return false;
  channel_on_ = false;
  return true;
}

std::unique_ptr<AUTH> authgss_create(CLIENT &client, std::string_view target_name,
                                     gss_credential_ptr credential, bool encrypted) {
  std::string host;
  std::unique_ptr<AUTH> made;
  if (target_of(client, target_name, host)) {
    if (encrypted) client.set_encrypted();
    auto cred = std::dynamic_pointer_cast<gss_cred>(credential);
    if (!cred) cred = acquire_for(client, host);
    if (cred) made = shake_hands(client, std::move(host), std::move(cred));
  }
  if (made) {
    KS_DEBUG(9, "RPC Authentication: Client successfully obtained RPCSEC_GSS credentials\n");
  } else {
    KS_DEBUG(2, "RPC Authentication: Client failed to obtain RPCSEC_GSS credentials: %s\n",
             clnt_create_error_text().c_str());
  }
  return made;
}

}  // namespace qvr
