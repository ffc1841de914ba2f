// The CRC of the POSIX `cksum` utility.
#pragma once

#include <cstdint>
#include <string_view>

namespace qvr {

// The checksum of the bytes with their count appended (POSIX.1-2017, cksum). Pure; any thread.
std::uint32_t posix_cksum(std::string_view bytes);

}  // namespace qvr
