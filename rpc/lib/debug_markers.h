// Marker files: files whose mere presence in the debug directory switches a behaviour on.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvr {

struct rpc_dirs_t {
  std::string debug;
  std::string checksums;
  bool nodelayeor = false;
  bool cntonly = false;
};
// Worked out once for the process, with the two markers that are looked at once. Any thread.
const rpc_dirs_t &rpc_dirs();
// Works them out again. For tests, while no other thread uses the transport.
void rpc_dirs_reset();

// Whether the marker is there now.
bool debug_marker(std::string_view name);
// Up to 511 bytes of a marker's content; nothing when it cannot be read.
std::optional<std::string> debug_marker_text(std::string_view name);

}  // namespace qvr
