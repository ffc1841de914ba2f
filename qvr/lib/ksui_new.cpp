#include "ksui_new.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace qvr {

namespace {

std::array<std::uint8_t, 6> read_signature() {
  std::array<std::uint8_t, 6> address{};
  ifaddrs *first = nullptr;
  if (getifaddrs(&first) != 0) return address;
  std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> owner(first, freeifaddrs);
  for (const ifaddrs *at = first; at != nullptr; at = at->ifa_next) {
    if (at->ifa_addr == nullptr || at->ifa_addr->sa_family != AF_PACKET) continue;
    if ((at->ifa_flags & IFF_LOOPBACK) != 0) continue;
    sockaddr_ll link;
    std::memcpy(&link, at->ifa_addr, sizeof link);
    if (link.sll_halen != address.size()) continue;
    std::copy_n(link.sll_addr, address.size(), address.begin());
    if (std::any_of(address.begin(), address.end(), [](std::uint8_t b) { return b != 0; })) break;
  }
  return address;
}

std::uint32_t next_count() {
  static std::atomic<std::uint32_t> counter{0};
  return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Words 2 and 4, which all signed kinds share.
ksui sign(ksui_kind kind, std::int64_t now) {
  const auto &host = host_signature();
  ksui id;
  id.set_word(0, static_cast<std::uint32_t>(kind));
  id.set_word(2, static_cast<std::uint32_t>(now));
  std::copy(host.begin() + 2, host.end(), id.bytes.begin() + 16);
  return id;
}

}  // namespace

const std::array<std::uint8_t, 6> &host_signature() {
  static const std::array<std::uint8_t, 6> signature = read_signature();
  return signature;
}

ksui ksui_new(ksui_kind kind, std::uint32_t number, std::int64_t now) {
  const auto &host = host_signature();
  ksui id = sign(kind, now);
  id.set_word(1, number);
  id.set_word(3, next_count() << 16 | static_cast<std::uint32_t>(host[0]) << 8 | host[1]);
  return id;
}

ksui ksui_new_storage(std::int64_t savetime, std::int64_t now) {
  ksui id = sign(KSUI_STORAGE, now);
  id.set_word(1, static_cast<std::uint32_t>(static_cast<std::uint64_t>(savetime) >> 32));
  id.set_word(3, static_cast<std::uint32_t>(savetime));
  return id;
}

}  // namespace qvr
