// The start of a client program: transport, messages and debug settings of this host.
#pragma once

namespace qvr {

// Readies the client library for the host of that name; once, on the main thread, before the first
// connection. `wait` waits for the local daemon to come up. False when the start ended early; what
// was readied until then stands.
bool qvr_client_init(const char *host, bool wait);
inline bool qvr_client_init(const char *host) {
  return qvr_client_init(host, false);
}

}  // namespace qvr
