// The ports on which the two port mappers of every host listen.
#pragma once

#include <cstdint>

namespace qvr {

inline constexpr std::uint16_t PMAP_PRODUCT_PORT = 7938;
inline constexpr std::uint16_t PMAP_NO_PORT = 65535;  // no system port mapper is asked

// Works the ports out at the first call in the process, from the services "qvrrpc" and "sunrpc".
// Both pointers may be null. Any thread.
void pmap_ports(std::uint16_t *system_port, std::uint16_t *product_port);
// Works them out again at the next call, or sets them for the rest of the process. For tests, while
// no other thread uses the transport.
void pmap_ports_reset();
void pmap_ports_set(std::uint16_t system_port, std::uint16_t product_port);

}  // namespace qvr
