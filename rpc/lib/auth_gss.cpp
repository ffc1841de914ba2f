#include "auth_gss.h"

#include <sys/socket.h>

#include "debug_words.h"
#include "kstr_auth.h"
#include "msg.h"

namespace qvr {

namespace {

// What a verifier is made over has to fit in there.
constexpr std::size_t signed_max = 2048;

// Header, procedure, flavour and credential body, as they stand on the wire. Empty when that is too
// long.
std::string signed_part(const auth_call &call, std::string_view body) {
  xdr_memory_writer out;
  bool fits = call.header.size() + 12 + ((body.size() + 3) & ~std::size_t{3}) <= signed_max &&
              out.put_bytes(call.header.data(), call.header.size()) &&
              out.put_u32(call.procedure) && out.put_u32(RPCSEC_GSS) && out.put_counted(body);
  return fits ? out.take() : std::string();
}

}  // namespace

auth_gss::auth_gss(CLIENT &client, std::string host, std::shared_ptr<gss_cred> cred)
    : client_(client),
      host_(std::move(host)),
      cred_(std::move(cred)),
      context_(std::make_shared<gss_ctx>()),
      channel_(std::make_shared<gss_channel>()) {
  channel_->context = context_;
  channel_->owner = this;
  channel_->lost = on_lost;
}

// The stream may hold the channel for longer; it gets nothing through any more.
auth_gss::~auth_gss() {
  channel_->context.reset();
  channel_->lost = nullptr;
  channel_->owner = nullptr;
  if (context_ && !keep_) context_->close();
}

bool auth_gss::marshal(XDR &xdr, const auth_call &call) {
  body_.seq = body_.proc == RPCSEC_GSS_CHANNEL ? 0 : call.xid;
  // On the channel nobody else can speak.
  bool is_up = established_ || body_.proc == RPCSEC_GSS_APP_TOKEN;
  bool is_signed = is_up && !channel_on_;
  xdr_memory_writer out;
  std::string whole;
  bool encoded = xdr_put_gss_cred(out, body_);
  if (encoded && is_signed) {
    whole = signed_part(call, out.bytes());
    encoded = !whole.empty();
  }
  if (!encoded || !xdr.put_u32(RPCSEC_GSS) || !xdr.put_counted(out.bytes())) {
    msg_print(84822, 22012, MSG_STDERR, "Cannot encode RPCSEC_GSS credential\n");
    return false;
  }
  std::string mic;
  encoded = !is_signed || gss_get_mic(*context_, body_.seq, whole, mic) == nullptr;
  if (encoded && xdr.put_u32(RPCSEC_GSS) && xdr.put_counted(mic)) return true;
  msg_print(84823, 22001, MSG_STDERR, "Cannot encode RPCSEC_GSS verifier\n");
  return false;
}

bool auth_gss::validate(const opaque_auth &verifier, std::uint32_t xid) {
  if (lost_) return false;
  if (!established_) return true;
  if (verifier.flavor != RPCSEC_GSS) {
    KS_DEBUG(1, "RPC Authentication: Invalid reply verifier flavor\n");
    return false;
  }
  if (channel_on_ && verifier.body.empty()) return true;
  std::uint8_t word[4];
  XDR::store32(word, xid);
  std::string_view input(reinterpret_cast<const char *>(word), sizeof word);
  return gss_verify_mic(*context_, input, verifier.body, nullptr, xid) == nullptr;
}

bool auth_gss::should_refresh(bool) {
  if (establishing_) return false;
  if (!context_ || !established_) return true;
  return expiry_ != 0 && expiry_ - get_kstr_clock().now() <= GSS_EXPIRY_MARGIN;
}

bool auth_gss::control(int request, void *argument) {
  if (argument == nullptr) return false;
  switch (request) {
    case AUTHGSS_CHANNEL:
      return set_channel(*static_cast<const bool *>(argument));
    case AUTHGSS_GET_TAG:
      *static_cast<std::uint32_t *>(argument) = mechanism_;
      return true;
    case AUTHGSS_GET_KIND:
      *static_cast<int *>(argument) = kind();
      return true;
    case AUTHGSS_GET_CONTEXT:
      if (!established_) return false;
      *static_cast<std::shared_ptr<gss_ctx> *>(argument) = context_;
      return true;
    case AUTHGSS_SET_KEEP:
      keep_ = *static_cast<const bool *>(argument);
      return true;
    default:
      return false;
  }
}

void auth_gss::drop_context() {
  cred_.reset();
  channel_->context.reset();
  if (context_) context_->close();
  context_.reset();
  establishing_ = established_ = false;
  lost_ = true;
}

// What comes behind the message is in plain, and anybody may have put both there. The connection
// ends with what the peer would say: that it knows no such context.
errobj_t *auth_gss::on_lost(void *self) {
  auto &auth = *static_cast<auth_gss *>(self);
  auth.drop_context();
  xdrrec_raw_t nothing;
  if (!xdrrec_control(*auth.client_.stream(), XDRREC_RECV_RAW, &nothing)) {
    KS_DEBUG(3,
             "RPC Authentication: Failed to receive raw buffers reauth message - used for GSS-APIs "
             "encryption\n");
  }
  auth.client_.set_error(RPC_AUTHERROR, AUTH_GSS_CREDPROBLEM);
  ::shutdown(auth.client_.socket(), SHUT_RDWR);
  return err_create(143915, 23004, "Failed to authenticate using GSS");
}

bool authgss_channel(AUTH &auth, bool on) {
  return auth.kind() == AUTH_KIND_GSS && auth.control(AUTHGSS_CHANNEL, &on);
}

}  // namespace qvr
