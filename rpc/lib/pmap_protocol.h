// The port mapper's protocol, version 2 (RFC 1833, section 3).
#pragma once

#include <cstdint>

#include "client.h"
#include "function_view.h"
#include "pmap_cache.h"
#include "rpc_status.h"
#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t PMAP_PROGRAM = 100000;
inline constexpr std::uint32_t PMAP_VERSION = 2;
inline constexpr std::uint32_t PMAPPROC_GETPORT = 3;
inline constexpr std::uint32_t PMAPPROC_DUMP = 4;

bool xdr_put_pmap(XDR &xdr, const pmap_entry_t &entry);
bool xdr_get_pmap(XDR &xdr, pmap_entry_t &entry);
// The chain of a dump: a word before each entry says whether it is there. Calls `take` for each; a
// chain beyond 65536 entries fails.
bool xdr_get_pmap_list(XDR &xdr, function_view<void(const pmap_entry_t &)> take);

// Asks for the port of the program, version and protocol of `wanted`: 0 when it is not registered.
clnt_stat pmap_call_getport(CLIENT &client, const pmap_entry_t &wanted, std::uint16_t &port);
clnt_stat pmap_call_dump(CLIENT &client, function_view<void(const pmap_entry_t &)> take);

}  // namespace qvr
