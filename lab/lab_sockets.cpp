#include "lab_sockets.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace qvr {

lab_socket::~lab_socket() {
  if (fd_ >= 0) close(fd_);
}

void lab_address::set_port(std::uint16_t port) {
  if (storage.ss_family == AF_INET6)
    reinterpret_cast<sockaddr_in6 &>(storage).sin6_port = htons(port);
  else
    reinterpret_cast<sockaddr_in &>(storage).sin_port = htons(port);
}

std::uint16_t lab_address::port() const {
  return ntohs(storage.ss_family == AF_INET6
                   ? reinterpret_cast<const sockaddr_in6 &>(storage).sin6_port
                   : reinterpret_cast<const sockaddr_in &>(storage).sin_port);
}

bool lab_address::is_loopback() const {
  if (storage.ss_family == AF_INET6)
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6 &>(storage).sin6_addr);
  return storage.ss_family == AF_INET &&
         ntohl(reinterpret_cast<const sockaddr_in &>(storage).sin_addr.s_addr) >> 24 == 127;
}

std::string lab_address::text() const {
  char host[INET6_ADDRSTRLEN] = "";
  bool six = storage.ss_family == AF_INET6;
  const void *address =
      six ? static_cast<const void *>(&reinterpret_cast<const sockaddr_in6 &>(storage).sin6_addr)
          : &reinterpret_cast<const sockaddr_in &>(storage).sin_addr;
  inet_ntop(storage.ss_family, address, host, sizeof host);
  return (six ? "[" + std::string(host) + "]" : host) + ":" + std::to_string(port());
}

std::vector<lab_address> loopback_addresses(const std::vector<std::string> &names) {
  std::vector<lab_address> list;
  for (const std::string &name : names) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0) continue;
    std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(found, freeaddrinfo);
    for (const addrinfo *at = found; at != nullptr; at = at->ai_next) {
      lab_address address;
      std::memcpy(&address.storage, at->ai_addr, at->ai_addrlen);
      address.size = at->ai_addrlen;
      bool known = std::any_of(list.begin(), list.end(), [&](const lab_address &other) {
        return other.text() == address.text();
      });
      if (address.is_loopback() && !known) list.push_back(address);
    }
  }
  return list;
}

namespace {

lab_socket bind_one(const lab_address &address, int type) {
  lab_socket socket(::socket(address.storage.ss_family, type | SOCK_CLOEXEC, 0));
  int on = 1;
  setsockopt(socket.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (address.storage.ss_family == AF_INET6)
    setsockopt(socket.fd(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  if (bind(socket.fd(), reinterpret_cast<const sockaddr *>(&address.storage), address.size) != 0 ||
      (type == SOCK_STREAM && listen(socket.fd(), SOMAXCONN) != 0)) {
    return lab_socket();
  }
  return socket;
}

// An address of a family that this host does not have is no failure.
bool absent() {
  return errno == EADDRNOTAVAIL || errno == EAFNOSUPPORT;
}

}  // namespace

std::vector<lab_socket> bind_all(const std::vector<lab_address> &addresses, int type,
                                 std::uint16_t &port, std::string &why) {
  bool any_port = port == 0;
  for (int tries = 0; tries < 100; tries++) {
    std::vector<lab_socket> sockets;
    std::uint16_t chosen = port;
    bool taken = false;
    for (lab_address address : addresses) {
      address.set_port(chosen);
      lab_socket socket = bind_one(address, type);
      if (socket.fd() < 0) {
        if (absent()) continue;
        why = address.text() + ": " + std::strerror(errno);
        taken = true;
        break;
      }
      if (chosen == 0) {
        getsockname(socket.fd(), reinterpret_cast<sockaddr *>(&address.storage), &address.size);
        chosen = address.port();
      }
      sockets.push_back(std::move(socket));
    }
    if (!taken && !sockets.empty()) {
      port = chosen;
      return sockets;
    }
    if (!any_port) break;
  }
  if (why.empty()) why = "no loopback address to listen on";
  return {};
}

}  // namespace qvr
