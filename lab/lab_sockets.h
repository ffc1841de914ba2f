// Sockets of the lab's daemons, which exist on loopback addresses only.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qvr {

// Owns a descriptor.
class lab_socket {
 public:
  lab_socket() = default;
  explicit lab_socket(int fd) : fd_(fd) {}
  lab_socket(lab_socket &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  lab_socket &operator=(lab_socket &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~lab_socket();
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
};

struct lab_address {
  sockaddr_storage storage{};
  socklen_t size = 0;
  void set_port(std::uint16_t port);
  std::uint16_t port() const;
  std::string text() const;  // "127.0.0.1:7938", "[::1]:7938"
  bool is_loopback() const;
};

// The loopback addresses of these names, each once. An address that is not loopback is left out.
std::vector<lab_address> loopback_addresses(const std::vector<std::string> &names);

// Sockets of one type (SOCK_STREAM: listening) on one port of all these addresses. Port 0 picks a
// port that is free on all. Empty on failure, with the reason in `why`; `port` receives the port.
std::vector<lab_socket> bind_all(const std::vector<lab_address> &addresses, int type,
                                 std::uint16_t &port, std::string &why);

}  // namespace qvr
