// The client handle of ONC RPC version 2 (RFC 5531): one program on one peer, over TCP or UDP.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>

#include "auth_handle.h"
#include "errobj.h"
#include "function_view.h"
#include "rpc_status.h"
#include "xdr.h"

namespace qvr {

// How a call ended. Which of the details count depends on the status.
struct rpc_err_t {
  clnt_stat status = RPC_SUCCESS;
  int error = 0;           // an errno value
  int why = 0;             // an auth_why, with RPC_AUTHERROR
  std::uint64_t low = 0;   // lowest version, or first detail
  std::uint64_t high = 0;  // highest version, or second detail
  int socket = -1;
  bool has_peer = false;
  sockaddr_storage peer = {};
};

// Tells how a waiting transfer goes on; null: the transfer is over. True ends the call.
struct clnt_cancel_t {
  bool (*function)(const std::chrono::microseconds *elapsed, void *argument) = nullptr;
  void *argument = nullptr;
};

enum clnt_wait_mode : int {
  CLNT_WAIT_NONE = 0,     // each call brings its time-out
  CLNT_WAIT_SET = 1,      // the handle's time-out counts
  CLNT_WAIT_FOREVER = 2,  // no time-out
};

// What CLSET_POLL takes and CLGET_POLL gives.
struct clnt_poll_t {
  std::chrono::microseconds interval{0};
  clnt_cancel_t cancel;
};

// The numbers of the control operation. Times are std::chrono::microseconds, numbers and switches
// int, program and mask uint32_t, the peer a sockaddr_storage, the stream an XDR *, a name a const
// char *; the argument points to one, or is null where that has a meaning of its own.
enum clnt_control : unsigned {
  CLSET_TIMEOUT = 1,
  CLGET_TIMEOUT = 2,
  CLGET_SERVER_ADDR = 3,
  CLSET_RETRY_TIMEOUT = 4,
  CLGET_RETRY_TIMEOUT = 5,
  CLGET_FD = 6,
  CLSET_FD_CLOSE = 8,
  CLSET_FD_NCLOSE = 9,
  CLGET_PROG = 14,
  CLSET_PROG = 15,
  CLGET_RCVBUF = 20,
  CLSET_RCVBUF = 21,
  CLGET_SNDBUF = 22,
  CLSET_SNDBUF = 23,
  CLSET_POLL = 24,
  CLGET_POLL = 25,
  CLSET_PEEK_ON_WRITE = 26,
  CLSET_REPLY_SEEN = 27,
  CLSET_NODELAY = 28,
  CLGET_REPLY_SEEN = 29,
  CLGET_XDRS = 30,
  CLSET_CLEAR_REPLY = 31,
  CLSET_ENCRYPTED = 32,
  CLGET_ENCRYPTED = 33,
  CLGET_AUTH_MASK = 34,
  CLSET_AUTH_MASK = 35,
  CLGET_WAIT_MODE = 36,
  CLSET_WAIT_MODE = 37,
  CLSET_SINGLE_FRAGMENT = 38,
  CLSET_KEEPALIVE = 39,
  CLSET_STATS = 69,
};

class xdr_record_stream;

// A handle belongs to one thread at a time. It owns its AUTH in `auth`; it starts with AUTH_NONE.
class CLIENT {
 public:
  virtual ~CLIENT() = default;

  // One call of `procedure`: arguments by `encode`, results by `decode` (empty: nothing is
  // decoded). `timeout` counts when no time-out was set on the handle. Status 0 is success; the
  // details of any other stand in last_error() until the next call. A time-out of zero only sends:
  // status 0 without a decoder, 5 with one.
  virtual clnt_stat call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                         std::chrono::microseconds timeout) = 0;

  virtual const rpc_err_t &last_error() const = 0;
  virtual const sockaddr_storage &peer() const = 0;
  virtual int socket() const = 0;
  // What the handle calls; 0 where the transport does not tell.
  virtual std::uint32_t program() const { return 0; }
  virtual std::uint32_t version() const { return 0; }

  // The handle's own time-out, from now on that of every call.
  virtual void set_timeout(std::chrono::microseconds timeout) = 0;
  // No time-out from now on: every call waits without limit.
  virtual void set_no_timeout() = 0;
  virtual std::chrono::microseconds timeout() const = 0;
  virtual void close_on_destroy(bool close) = 0;

  // The flavours allowed on this handle; 31 for a transport that keeps no mask.
  virtual std::uint32_t auth_mask() const { return AUTH_METHOD_ALL; }
  virtual void set_auth_mask(std::uint32_t) {}
  // Whether a reply with status success was decoded on this connection.
  virtual bool reply_seen() const { return false; }
  virtual void set_reply_seen(bool) {}
  virtual clnt_wait_mode wait_mode() const { return CLNT_WAIT_NONE; }
  virtual void set_wait_mode(clnt_wait_mode) {}
  // How often a waiting transfer wakes up to ask `cancel`. False where the transport has no such.
  virtual bool set_poll(std::chrono::microseconds, clnt_cancel_t) { return false; }
  // The security layer is to use the encrypted channel; it cannot be taken back.
  virtual bool set_encrypted() { return false; }
  virtual bool encrypted() const { return false; }
  // The next reply comes in plain although the channel is encrypted. Refused on a plain channel.
  virtual bool set_clear_reply() { return false; }
  // The record stream below the calls; null where there is none.
  virtual xdr_record_stream *stream() { return nullptr; }

  // The same by number, with the argument that the number names; false for an unknown number.
  virtual bool control(unsigned command, void *argument) = 0;

  // Sets the status that the running call ends with. For the layers inside a call.
  virtual void set_error(clnt_stat status, int error_or_why) = 0;

  std::unique_ptr<AUTH> auth;
};

// Destroys the credential and then the handle.
void clnt_auth_destroy(std::unique_ptr<CLIENT> &client);

// The error object of the handle's last call (message 76677) and of the thread's create error
// (42503). In the thread's ring; null when the status is RPC_SUCCESS.
errobj_t *clnt_error(const CLIENT &client);
errobj_t *clnt_create_error();

}  // namespace qvr
