#include "rpc_message.h"

#include <sys/time.h>
#include <unistd.h>

namespace qvr {

namespace {

constexpr std::uint32_t rpc_version = 2;
enum direction : std::uint32_t { CALL = 0, REPLY = 1 };
enum reply_stat : std::uint32_t { MSG_ACCEPTED = 0, MSG_DENIED = 1 };
enum accept_stat : std::uint32_t { PROG_MISMATCH = 2 };
enum reject_stat : std::uint32_t { RPC_MISMATCH = 0, AUTH_ERROR = 1 };

constexpr clnt_stat accepted_status[] = {RPC_SUCCESS,     RPC_PROGUNAVAIL,    RPC_PROGVERSMISMATCH,
                                         RPC_PROCUNAVAIL, RPC_CANTDECODEARGS, RPC_SYSTEMERROR};
constexpr clnt_stat denied_status[] = {RPC_VERSMISMATCH, RPC_AUTHERROR};

}  // namespace

rpc_call_header::rpc_call_header(std::uint32_t xid, std::uint32_t program, std::uint32_t version) {
  set_word(0, xid);
  set_word(1, CALL);
  set_word(2, rpc_version);
  set_word(3, program);
  set_word(4, version);
}

std::uint32_t rpc_call_header::next_xid() {
  set_word(0, xid() - 1);
  return xid();
}

std::uint32_t rpc_first_xid() {
  timeval now;
  gettimeofday(&now, nullptr);
  return static_cast<std::uint32_t>(now.tv_usec) ^ static_cast<std::uint32_t>(getpid()) ^
         static_cast<std::uint32_t>(now.tv_sec);
}

bool xdr_get_reply(XDR &xdr, rpc_reply_t &reply) {
  std::uint32_t dir = 0, stat = 0;
  if (!xdr.get_u32(dir) || dir != REPLY || !xdr.get_u32(stat)) return false;
  reply.accepted = stat == MSG_ACCEPTED;
  if (reply.accepted) {
    if (!xdr_get_opaque_auth(xdr, reply.verifier) || !xdr.get_u32(reply.status)) return false;
    return reply.status != PROG_MISMATCH || (xdr.get_u32(reply.low) && xdr.get_u32(reply.high));
  }
  if (stat != MSG_DENIED || !xdr.get_u32(reply.status)) return false;
  if (reply.status == RPC_MISMATCH) return xdr.get_u32(reply.low) && xdr.get_u32(reply.high);
  return reply.status != AUTH_ERROR || xdr.get_u32(reply.why);
}

void rpc_reply_error(const rpc_reply_t &reply, rpc_err_t &error) {
  error.low = reply.low;
  error.high = reply.high;
  error.why = static_cast<int>(reply.why);
  error.error = 0;
  if (reply.accepted && reply.status < std::size(accepted_status)) {
    error.status = accepted_status[reply.status];
  } else if (!reply.accepted && reply.status < std::size(denied_status)) {
    error.status = denied_status[reply.status];
  } else {
    error.status = RPC_FAILED;
    error.low = reply.accepted ? MSG_ACCEPTED : MSG_DENIED;
    error.high = reply.status;
  }
}

}  // namespace qvr
