// The RPC name table: the system's own programs first, then the host's RPC database.
#pragma once

#include <cstdint>

namespace qvr {

// The name of a program, or null. Lasts as long as the process. Any thread.
const char *rpc_program_name(std::uint32_t program);
// The number of a program by its name, without regard to case; 0 when it has none. Any thread.
std::uint32_t rpc_program_number(const char *name);

}  // namespace qvr
