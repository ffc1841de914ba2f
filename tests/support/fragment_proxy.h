// Stands between an RPC client and a server on loopback and passes every record on in fragments of
// a told size, both ways.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <thread>

#include "raw_rpc.h"
#include "record_fixture.h"

namespace qvr::test {

// One connection, from construction to destruction.
class fragment_proxy {
 public:
  fragment_proxy(std::uint16_t server, std::size_t fragment)
      : server_("127.0.0.1", server), fragment_(fragment) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener_, plain, size) != 0 || listen(listener_, 1) != 0 ||
        getsockname(listener_, plain, &size) != 0) {
      return;
    }
    port_ = ntohs(address.sin_port);
    requests_ = std::thread([this] {
      client_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      replies_ = std::thread([this] { pass_on(server_.fd(), client_); });
      pass_on(client_, server_.fd());
    });
  }
  // The client has gone by then, or never came.
  ~fragment_proxy() {
    shutdown(listener_, SHUT_RDWR);
    if (requests_.joinable()) requests_.join();
    if (replies_.joinable()) replies_.join();
    for (int fd : {listener_, client_}) {
      if (fd >= 0) close(fd);
    }
  }
  fragment_proxy(const fragment_proxy &) = delete;
  fragment_proxy &operator=(const fragment_proxy &) = delete;
  std::uint16_t port() const { return port_; }

 private:
  static bool take(int fd, char *to, std::size_t size) {
    return recv(fd, to, size, MSG_WAITALL) == static_cast<ssize_t>(size);
  }
  void pass_on(int from, int to) const {
    std::uint8_t mark[4];
    std::string payload;
    while (take(from, reinterpret_cast<char *>(mark), 4)) {
      std::size_t have = payload.size(), more = XDR::load32(mark) & 0x7fffffff;
      payload.resize(have + more);
      if (more != 0 && !take(from, payload.data() + have, more)) break;
      if (mark[0] < 0x80) continue;
      std::string bytes = record(payload, fragment_);
      payload.clear();
      for (std::size_t at = 0; at < bytes.size();) {
        ssize_t sent = send(to, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (sent <= 0) break;
        at += static_cast<std::size_t>(sent);
      }
    }
    shutdown(to, SHUT_RDWR);
  }

  raw_socket server_;
  std::size_t fragment_;
  int listener_ = -1, client_ = -1;
  std::uint16_t port_ = 0;
  std::thread requests_, replies_;
};

}  // namespace qvr::test
