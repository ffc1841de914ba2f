#include "auth_kstr.h"

#include <cerrno>

#include "clnt_error.h"
#include "debug_words.h"
#include "kstr_auth.h"
#include "kstr_blob.h"
#include "rpc_state.h"
#include "secrets.h"

namespace qvr {

namespace {

constexpr std::int64_t short_life = 3600;   // seconds
constexpr std::int64_t renew_before = 600;  // seconds before the end of that
constexpr std::uint32_t blob_max = OPAQUE_AUTH_MAX - 8;

std::string encoded(const kstr_body &body) {
  xdr_memory_writer out;
  if (!xdr_put_kstr_body(out, body)) return {};
  return out.take();
}

class auth_kstr final : public AUTH {
 public:
  auth_kstr(std::string body, std::string server, bool ticket)
      : full_(std::move(body)), server_(std::move(server)), ticket_(ticket) {}
  ~auth_kstr() override {
    secret_wipe(full_);
    secret_wipe(short_);
  }

  std::uint32_t flavor() const override { return AUTH_KSTR; }
  auth_kind kind() const override { return AUTH_KIND_KSTR; }

  bool marshal(XDR &xdr, const auth_call &) override {
    return xdr.put_u32(AUTH_KSTR) && xdr.put_counted(short_.empty() ? full_ : short_) &&
           xdr.put_u32(AUTH_NONE) && xdr.put_u32(0);
  }

  bool validate(const opaque_auth &verifier, std::uint32_t) override {
    if (verifier.flavor != AUTH_KSTR) return true;
    xdr_memory_reader in(verifier.body);
    kstr_body body;
    if (!xdr_get_kstr_body(in, body)) return false;
    switch (body.tag) {
      case KSTR_SHORT:
      case KSTR_SHORT_PLAIN:
        if (!short_.empty()) break;
        short_ = verifier.body;
        expiry_ = body.tag == KSTR_SHORT ? get_kstr_clock().now() + short_life : 0;
        break;
      case KSTR_LOST:
        secret_wipe(short_);
        break;
      default:
        break;
    }
    return true;
  }

  bool should_refresh(bool send_only) override {
    return !send_only && !short_.empty() && expiry_ != 0 &&
           expiry_ - get_kstr_clock().now() <= renew_before;
  }

  bool refresh() override {
    if (short_.empty()) return false;
    const auto &fetch = rpc_thread_state().fetch_blob;
    if (fetch && ticket_) {
      xdr_memory_reader in(full_);
      kstr_body body;
      if (!xdr_get_kstr_body(in, body) || fetch(server_, body.blob) != nullptr) {
        KS_DEBUG(1, "authkstr_refresh to '%s' failed\n", server_.c_str());
        secret_wipe(body.blob);
        return false;
      }
      secret_wipe(full_);
      full_ = encoded(body);
      secret_wipe(body.blob);
    }
    secret_wipe(short_);
    return !full_.empty();
  }

 private:
  std::string full_;   // encoded bodies
  std::string short_;  // empty: the full one is in use
  std::int64_t expiry_ = 0;
  std::string server_;
  bool ticket_;  // the body holds a blob
};

std::unique_ptr<AUTH> no_name() {
  set_create_err(RPC_SYSTEMERROR, EINVAL);
  return nullptr;
}

}  // namespace

bool xdr_put_kstr_body(XDR &xdr, const kstr_body &body) {
  if (!xdr.put_u32(body.tag)) return false;
  switch (body.tag) {
    case KSTR_FULL:
      return body.blob.size() <= blob_max && xdr.put_counted(body.blob);
    case KSTR_SHORT:
    case KSTR_LOST:
    case KSTR_SHORT_PLAIN:
      return xdr.put_u32(body.number);
    case KSTR_LOGIN:
      for (const std::string *text : {&body.user, &body.response, &body.text}) {
        if (text->size() > KSTR_LOGIN_TEXT_MAX || !xdr.put_counted(*text)) return false;
      }
      return true;
    default:
      return body.tag == KSTR_CHALLENGE;
  }
}

bool xdr_get_kstr_body(XDR &xdr, kstr_body &body) {
  if (!xdr.get_u32(body.tag)) return false;
  switch (body.tag) {
    case KSTR_FULL:
      return xdr.get_counted(body.blob, blob_max);
    case KSTR_SHORT:
    case KSTR_LOST:
    case KSTR_SHORT_PLAIN:
      return xdr.get_u32(body.number);
    case KSTR_LOGIN:
      return xdr.get_counted(body.user, KSTR_LOGIN_TEXT_MAX) &&
             xdr.get_counted(body.response, KSTR_LOGIN_TEXT_MAX) &&
             xdr.get_counted(body.text, KSTR_LOGIN_TEXT_MAX);
    default:
      return body.tag == KSTR_CHALLENGE;
  }
}

std::unique_ptr<AUTH> authkstr_create(CLIENT &, std::string_view server_name,
                                      const std::string *blob) {
  rpc_thread_state_t &thread = rpc_thread_state();
  std::string name(server_name);
  if (name.empty() && thread.server_name) name = thread.server_name();
  if (name.empty() && blob != nullptr) name = kstr_blob_server(*blob);
  kstr_body body;
  if (blob != nullptr) {
    body.blob = *blob;
  } else if (!thread.fetch_blob || thread.fetch_blob(name, body.blob) != nullptr) {
    return no_name();
  }
  if (name.empty()) name = kstr_blob_server(body.blob);
  if (name.empty()) return no_name();
  std::string bytes = encoded(body);
  secret_wipe(body.blob);
  if (bytes.empty()) return no_name();
  KS_DEBUG(3, "RPC Authentication: Client successfully obtained AUTH_KSTR credentials\n");
  return std::make_unique<auth_kstr>(std::move(bytes), std::move(name), true);
}

std::unique_ptr<AUTH> authkstr_create_challenge() {
  kstr_body body;
  body.tag = KSTR_CHALLENGE;
  return std::make_unique<auth_kstr>(encoded(body), std::string(), false);
}

std::unique_ptr<AUTH> authkstr_create_login(std::string_view user, std::string_view response,
                                            std::string_view text) {
  kstr_body body;
  body.tag = KSTR_LOGIN;
  body.user = user;
  body.response = response;
  body.text = text;
  std::string bytes = encoded(body);
  if (bytes.empty()) return no_name();
  return std::make_unique<auth_kstr>(std::move(bytes), std::string(), false);
}

}  // namespace qvr
