// New identifiers, signed by the host that makes them.
#pragma once

#include <array>
#include <cstdint>

#include "ksui.h"

namespace qvr {

// The hardware address of the first usable network interface; zeros on a host that has none. Read
// once a process.
const std::array<std::uint8_t, 6> &host_signature();

// An identifier of kind 5 or 6: `number` from the object id generator, `now` in seconds. Any
// thread; no two calls of one process give the same for 65535 calls.
ksui ksui_new(ksui_kind kind, std::uint32_t number, std::int64_t now);
// An identifier of a save set on storage, which holds its save time.
ksui ksui_new_storage(std::int64_t savetime, std::int64_t now);

}  // namespace qvr
