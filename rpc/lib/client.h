// The client handle of ONC RPC version 2 (RFC 5531): one program on one peer, over TCP or UDP.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "auth_handle.h"
#include "errobj.h"
#include "function_view.h"
#include "rpc_status.h"
#include "xdr.h"

namespace qvr {

using xdr_encoder = function_view<bool(XDR &)>;
using xdr_decoder = function_view<bool(XDR &)>;

// A handle belongs to one thread at a time. It owns its AUTH in `auth`; it starts with AUTH_NONE.
class CLIENT {
 public:
  virtual ~CLIENT() = default;

  // One call of `procedure`: arguments by `encode`, results by `decode` (empty: nothing is
  // decoded). `timeout` counts when no time-out was set on the handle. Status 0 is success; the
  // details of any other stand in last_error() until the next call.
  virtual clnt_stat call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                         std::chrono::microseconds timeout) = 0;

  virtual const rpc_err_t &last_error() const = 0;

  std::unique_ptr<AUTH> auth;
};

// The error object of the handle's last call (message 76677) and of the thread's create error
// (42503). In the thread's ring.
errobj_t *clnt_error(const CLIENT &client);
errobj_t *clnt_create_error();

}  // namespace qvr
