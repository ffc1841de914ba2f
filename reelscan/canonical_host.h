// What the resolver calls a host.
#pragma once

#include <string>
#include <string_view>

namespace qvr {

// The canonical name of a host; empty when it does not resolve. Any thread.
std::string canonical_host(std::string_view name);

}  // namespace qvr
