// What the RPC library keeps for the process and for a thread. Nothing of it is read from
// configuration here: client start reads the resources and sets the values.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "clnt_error.h"
#include "errobj.h"

namespace qvr {

class auth_methods;
class gss_crypto;

struct rpc_global_t {
  std::mutex mutex;                             // guards everything below
  std::shared_ptr<const auth_methods> methods;  // null: 31 applies to every peer
  std::chrono::seconds session_timeout{1800};
  std::uint32_t auth_class = 0;
  int tcp_retry = 0;
  bool multi_subnet = false;
};
rpc_global_t &rpc_global();

// Main thread at start, or under a test.
void rpc_set_multi_subnet(bool on, int tcp_retry);

struct rpc_thread_state_t {
  rpc_create_err_t create_error;
  // One fetches a credential blob for a server name, renewing the one that it is handed unless that
  // is empty; the other gives that name. Set by kstr_auth's set-up; empty until then.
  std::function<errobj_t *(const std::string &server, std::string &blob)> fetch_blob;
  std::function<std::string()> server_name;
  // The thread's cipher and MAC states of the security layer; null until its first use.
  std::shared_ptr<gss_crypto> crypto;
};
rpc_thread_state_t &rpc_thread_state();

}  // namespace qvr
