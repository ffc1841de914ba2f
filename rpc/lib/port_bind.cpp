#include "port_bind.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <mutex>

#include "debug_words.h"
#include "hosts.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"
#include "port_ranges.h"

namespace qvr {

namespace {

// A wildcard address of either family.
struct wildcard_t {
  sockaddr_storage place = {};
  socklen_t length = 0;

  wildcard_t(int family, int port) {
    place.ss_family = static_cast<sa_family_t>(family);
    if (family == AF_INET) {
      reinterpret_cast<sockaddr_in &>(place).sin_port = htons(static_cast<std::uint16_t>(port));
      length = sizeof(sockaddr_in);
    } else {
      reinterpret_cast<sockaddr_in6 &>(place).sin6_port = htons(static_cast<std::uint16_t>(port));
      length = sizeof(sockaddr_in6);
    }
  }
  const sockaddr *address() const { return reinterpret_cast<const sockaddr *>(&place); }
};

int bind_to(int socket, int family, int port) {
  wildcard_t wildcard(family, port);
  return ks_bind(socket, wildcard.address(), wildcard.length);
}

int bind_to_any(int socket, int family) {
  if (bind_to(socket, family, 0) == 0) {
    KS_DEBUG(9, "Socket bound to OS determined port\n");
    return 0;
  }
  int error = errno;
  wildcard_t wildcard(family, 0);
  KS_DEBUG(1, "Failed to bind socket to arbitrary port: %s\n", ks_strerror(error));
  KS_DEBUG(1, "family: %d socket: %d socklen: %d port: %d ip addr: %s\n", family, socket,
           static_cast<int>(wildcard.length), 0, ks_address_text(wildcard.address()).c_str());
  errno = EADDRNOTAVAIL;
  return -1;
}

std::size_t random_tries(std::size_t count) {
  if (count <= 500) return 7;
  return count < 2856 ? count / 4 : 713;
}

int nth_port(const rpc_port_ranges_t::list_t &list, std::size_t n) {
  for (const port_range_t &node : list.nodes) {
    auto size = static_cast<std::size_t>(node.high - node.low + 1);
    if (n < size) return node.low + static_cast<int>(n);
    n -= size;
  }
  return list.nodes.front().low;
}

// Hands out each port of a list once: every node from its next port on, then every node from its
// low end on.
class port_sequence {
 public:
  explicit port_sequence(rpc_port_ranges_t::list_t &list) : list_(list) {
    for (port_range_t &node : list.nodes) spans_.push_back({&node, node.next, node.high});
    for (port_range_t &node : list.nodes) spans_.push_back({&node, node.low, node.next - 1});
  }
  int take() {
    while (at_ < spans_.size() && spans_[at_].first > spans_[at_].last) at_++;
    if (at_ == spans_.size()) return list_.nodes.front().low;
    span_t &span = spans_[at_];
    int port = span.first++;
    span.node->next = port < span.node->high ? port + 1 : span.node->low;
    return port;
  }

 private:
  struct span_t {
    port_range_t *node;
    int first, last;
  };
  rpc_port_ranges_t::list_t &list_;
  std::vector<span_t> spans_;
  std::size_t at_ = 0;
};

int bind_from_list(rpc_port_ranges_t &ranges, rpc_port_ranges_t::list_t &list, int socket,
                   int family) {
  std::size_t random = random_tries(list.count), tries = random + list.count;
  port_sequence sequence(list);
  for (std::size_t attempt = 0; attempt < tries; attempt++) {
    int port = attempt < random ? nth_port(list, port_random(list.count)) : sequence.take();
    if (port_is_excluded_locked(ranges, port)) continue;
    if (bind_to(socket, family, port) == 0) {
      KS_DEBUG(9, "Socket bound to port %d\n", port);
      return 0;
    }
    int error = errno;
    if (error != EADDRINUSE) {
      KS_DEBUG(1, "%s:%d Failed to bind socket to port %d: %s\n", __FILE__, __LINE__, port,
               ks_strerror(error));
      break;
    }
    KS_DEBUG(2, "Failed to bind socket to port %d: %s\n", port, ks_strerror(error));
    KS_DEBUG(2, "Bind attempt %d failed, retrying...\n", static_cast<int>(attempt));
  }
  errno = EADDRNOTAVAIL;
  return -1;
}

}  // namespace

int rpc_bind_from_range(int socket, int family) {
  if (family != AF_INET && family != AF_INET6) {
    errno = EPFNOSUPPORT;
    return -1;
  }
  rpc_port_ranges_t &ranges = rpc_port_ranges();
  std::lock_guard hold(*ranges.lock);
  auto &list = ranges.lists[PORTS_CONNECTION];
  if (list.nodes.empty()) return bind_to_any(socket, family);
  return bind_from_list(ranges, list, socket, family);
}

std::size_t rpc_connection_range_count() {
  return port_range_count(PORTS_CONNECTION);
}

std::string rpc_connection_range_text() {
  return port_range_text(PORTS_CONNECTION);
}

}  // namespace qvr
