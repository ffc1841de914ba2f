#include "rpc_state.h"

#include "auth_methods.h"
#include "immortal.h"

namespace qvr {

rpc_global_t &rpc_global() {
  static immortal<rpc_global_t> state;
  return *state;
}

void rpc_set_multi_subnet(bool on, int tcp_retry) {
  rpc_global_t &global = rpc_global();
  std::lock_guard lock(global.mutex);
  global.multi_subnet = on;
  global.tcp_retry = tcp_retry;
}

rpc_thread_state_t &rpc_thread_state() {
  static thread_local rpc_thread_state_t state;
  return state;
}

}  // namespace qvr
