// The CRC of the POSIX `cksum` utility.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qvr {

// The checksum of the bytes with their count appended (POSIX.1-2017, cksum). Pure; any thread.
std::uint32_t posix_cksum(std::string_view bytes);

// The same in steps: start with 0, add bytes, end with the count that the checksum shall close
// with.
std::uint32_t posix_cksum_add(std::uint32_t crc, std::string_view bytes);
std::uint32_t posix_cksum_end(std::uint32_t crc, std::size_t count);

}  // namespace qvr
