// The RPCSEC_GSS flavour (RFC 2203) over the mechanism of gss_context.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "auth_handle.h"
#include "client.h"
#include "gss_channel.h"
#include "gss_context.h"
#include "gss_wire.h"

namespace qvr {

// Requests of AUTH::control.
enum authgss_control : int {
  AUTHGSS_CHANNEL = 0,      // const bool *: authgss_channel
  AUTHGSS_GET_TAG = 1,      // uint32_t *: the mechanism tag
  AUTHGSS_GET_KIND = 2,     // int *: AUTH_KIND_GSS
  AUTHGSS_GET_CONTEXT = 3,  // std::shared_ptr<gss_ctx> *; only after the context is up
  AUTHGSS_SET_KEEP = 4,     // const bool *: the context outlives the handle
};

// Runs the handshake on `client`, whose own AUTH stands again when it is over. An empty target name
// means the peer's numeric address; a null credential is acquired for the current user. With
// `encrypted` the handle's encrypted channel flag is set first; with the flag set by whomever, the
// channel is on when the handle is returned. Null with the create error set.
std::unique_ptr<AUTH> authgss_create(CLIENT &client, std::string_view target_name,
                                     gss_credential_ptr credential, bool encrypted);
// Turns the encrypted channel on or off on an established handle; no reply is read. False for an
// AUTH of another flavour, without a context, or when the stream refuses.
bool authgss_channel(AUTH &auth, bool on);

class auth_gss final : public AUTH {
 public:
  auth_gss(CLIENT &client, std::string host, std::shared_ptr<gss_cred> cred);
  ~auth_gss() override;
  auth_gss(const auth_gss &) = delete;
  auth_gss &operator=(const auth_gss &) = delete;

  std::uint32_t flavor() const override { return RPCSEC_GSS; }
  auth_kind kind() const override { return AUTH_KIND_GSS; }
  bool marshal(XDR &xdr, const auth_call &call) override;
  bool validate(const opaque_auth &verifier, std::uint32_t xid) override;
  bool should_refresh(bool send_only) override;
  bool refresh() override { return false; }
  bool control(int request, void *argument) override;

  // The rounds of the handshake, from the first token to the application token and the channel. On
  // failure the create error is set.
  bool establish();
  bool set_channel(bool on);

 private:
  // The outcome of one round trip.
  struct round_t {
    std::uint32_t major = 0;
    std::uint32_t flags = 0;
    std::string output;
  };
  bool fail(int why) const;
  bool exchange(round_t &round, bool first);
  bool send_app_token(std::string_view plain);
  bool turn_on();
  bool wants_app_token() const { return cred_ && cred_->has_app_token; }
  static errobj_t *on_lost(void *self);
  void drop_context();

  CLIENT &client_;
  std::uint32_t mechanism_ = GSS_MECHANISM_TAG;
  std::string host_;
  bool establishing_ = false;
  bool established_ = false;
  bool channel_on_ = false;
  bool lost_ = false;  // the peer forgot the context: nothing more is believed
  std::shared_ptr<gss_cred> cred_;
  std::shared_ptr<gss_ctx> context_;
  std::shared_ptr<gss_channel> channel_;
  std::int64_t expiry_ = 0;  // seconds since 1970; 0: never
  gss_init_result result_;   // of the last INIT
  gss_call_cred body_;
  bool keep_ = false;
};

}  // namespace qvr
