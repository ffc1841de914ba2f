// How soon a dead peer is noticed on an idle connection.
#pragma once

#include "errobj.h"

namespace qvr {

struct tcp_keepalive_t {
  int idle = 300;     // seconds before the first probe: VL_TCP_KEEPIDLE_SECS
  int interval = 30;  // seconds between probes: VL_TCP_KEEPINTVL_SECS
  int count = 20;     // probes: VL_TCP_KEEPCNT
};

// The settings of the environment; an error object for a value that is no decimal number above 0.
errobj_t *tcp_keepalive_settings(tcp_keepalive_t &settings);
// Applies them. False, with a debug line, when a setting is bad (then nothing is applied) or the
// socket refuses.
bool tcp_keepalive_apply(int socket);

}  // namespace qvr
