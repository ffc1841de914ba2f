// The acceptor's side of the mechanism, for daemons and for what stands in for them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "errobj.h"
#include "gss_context.h"
#include "session_record.h"

namespace qvr {

// Where an acceptor gets its sessions from.
class gss_acceptor {
 public:
  virtual ~gss_acceptor() = default;
  // The record of a session that a client presents, from this side's authentication service. An
  // error object or null.
  virtual errobj_t *find_session(std::uint64_t session, session_record &record) = 0;
  // Whether a client without a session key is taken.
  virtual bool takes_insecure() const { return false; }
  // Whether this is an authentication service, which judges claims.
  virtual bool serves_claims() const { return false; }
  // Makes a session for what `claim` claims, and hands its record to where only the rightful
  // claimant can read it: `answer` says where and holds the challenge. An error object or null.
  virtual errobj_t *open_session(const gss_init_token &claim, session_record &record,
                                 gss_reply_token &answer);
};

// One step: takes the initiator's token, gives the answer in `output` (empty: none). With
// GSS_FLAG_NO_REPLY in `flags` the initiator reads no answer. An error object, with `major` not
// complete, or null.
errobj_t *gss_accept_sec_context(gss_acceptor &acceptor, gss_ctx &context, std::string_view input,
                                 std::string &output, std::uint32_t &major, std::uint32_t &flags);

// The line about the channel when a context is complete.
void gss_log_channel(bool encrypted, std::string_view address);

}  // namespace qvr
