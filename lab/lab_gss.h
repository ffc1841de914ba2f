// RPCSEC_GSS (RFC 2203) on the lab's side: the contexts of one connection, and its channel.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "gss_accept.h"
#include "gss_context.h"
#include "gss_wire.h"
#include "lab_credentials.h"
#include "lab_faults.h"
#include "xdr.h"

namespace qvr {

struct lab_state;

// A call with this flavour, as dispatch sees it.
struct gss_call {
  std::uint32_t xid = 0;
  std::string_view signed_part;  // header to credential, as it came
  const lab_auth &credential;
  const lab_auth &verifier;
  XDR &in;  // the arguments
};

// Belongs to one connection and its thread.
class lab_gss final : private gss_acceptor {
 public:
  // `service`: this daemon is the authentication service.
  lab_gss(lab_state &lab, bool service, std::string peer)
      : lab_(lab), service_(service), peer_(std::move(peer)) {}
  ~lab_gss() override;

  // Judges the call. With `own` in the verdict the call is the flavour's own and `answer` its
  // result; with `silent` nothing is answered.
  lab_judgement judge(const gss_call &call, const lab_fault &fault);

  // After the answer has gone out: takes up what the call changed about the channel.
  void settle();
  bool encrypted() const { return channel_ != nullptr; }
  // True once when the context of the channel was lost: the announcement goes out before the
  // answer, and both are in plain.
  bool take_loss();

  // What a fragment of the channel holds, and how one looks. False: the peer is no good.
  bool unwrap(std::string_view fragment, std::string &bytes);
  bool wrap(std::string_view bytes, std::string &fragment);

 private:
  struct context_t {
    gss_ctx gss;
    bool app_token_follows = false;
    bool channel_wanted = false;
    std::string user;
  };
  using context_ptr = std::shared_ptr<context_t>;

  errobj_t *find_session(std::uint64_t session, session_record &record) override;
  bool takes_insecure() const override;
  bool serves_claims() const override { return service_; }
  errobj_t *open_session(const gss_init_token &claim, session_record &record,
                         gss_reply_token &answer) override;

  context_ptr context_of(const std::string &handle);
  void handshake(const gss_call &call, const gss_call_cred &cred, const lab_fault &fault,
                 lab_judgement &verdict);
  void app_token(const gss_call &call, context_t &context, lab_judgement &verdict);
  void switch_channel(const gss_call &call, const context_ptr &context, lab_judgement &verdict);
  void data(const gss_call &call, const gss_call_cred &cred, context_t &context,
            const lab_fault &fault, lab_judgement &verdict);
  bool verifies(const gss_call &call, const gss_call_cred &cred, context_t &context) const;
  void finish(const context_ptr &context);

  lab_state &lab_;
  bool service_;
  std::string peer_;
  std::map<std::string, context_ptr> contexts_;  // by handle
  std::uint64_t last_handle_ = 0;
  std::string session_file_;
  context_ptr channel_;       // null: in plain
  context_ptr next_channel_;  // once the answer is out
  bool leaving_ = false;      // the channel, once the answer is out
  bool lost_ = false;
};

}  // namespace qvr
