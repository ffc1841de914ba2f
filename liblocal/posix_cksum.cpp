#include "posix_cksum.h"

#include <array>

namespace qvr {

namespace {

constexpr std::array<std::uint32_t, 256> make_table() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < 256; byte++) {
    std::uint32_t crc = byte << 24;
    for (int bit = 0; bit < 8; bit++) crc = crc << 1 ^ (crc >> 31 != 0 ? 0x04C11DB7u : 0u);
    table[byte] = crc;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> crc_table = make_table();

constexpr std::uint32_t step(std::uint32_t crc, std::uint32_t byte) {
  return crc << 8 ^ crc_table[(crc >> 24 ^ byte) & 0xff];
}

}  // namespace

std::uint32_t posix_cksum_add(std::uint32_t crc, std::string_view bytes) {
  for (char byte : bytes) crc = step(crc, static_cast<std::uint8_t>(byte));
  return crc;
}

std::uint32_t posix_cksum_end(std::uint32_t crc, std::size_t count) {
  for (; count != 0; count >>= 8) crc = step(crc, static_cast<std::uint32_t>(count & 0xff));
  return ~crc;
}

std::uint32_t posix_cksum(std::string_view bytes) {
  return posix_cksum_end(posix_cksum_add(0, bytes), bytes.size());
}

}  // namespace qvr
