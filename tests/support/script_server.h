// An RPC server of the tests' own (RFC 5531 over plain sockets): it hands every call to a function,
// which says byte for byte what comes back, and when.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "clnt_create.h"
#include "record_fixture.h"

namespace qvr {

struct served_call {
  std::uint32_t xid = 0, program = 0, version = 0, procedure = 0;
  std::uint32_t flavor = 0;
  std::string credential;
  std::string arguments;
  std::string raw;  // the whole record
};

class served_connection {
 public:
  explicit served_connection(int fd, const std::atomic<bool> &stop) : fd_(fd), stop_(stop) {}
  void send(std::string_view bytes) const {
    while (!bytes.empty()) {
      ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  // Until the test is over, or that time has passed.
  void stall(std::chrono::milliseconds time) const {
    auto end = std::chrono::steady_clock::now() + time;
    while (!stop_ && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  bool stopped() const { return stop_; }
  bool closing = false;
  // What is done to each fragment that comes from here on.
  std::function<void(std::string &)> open;

 private:
  int fd_;
  const std::atomic<bool> &stop_;
};

inline std::string reply_head(std::uint32_t xid) {
  return word(xid) + word(1) + word(0) + word(0) + word(0) + word(0);
}
inline std::string counted(std::string_view bytes) {
  return word(static_cast<std::uint32_t>(bytes.size())) + std::string(bytes) +
         std::string(-bytes.size() & 3, '\0');
}
inline std::string reply_head(std::uint32_t xid, std::uint32_t flavor, std::string_view verifier) {
  return word(xid) + word(1) + word(0) + word(flavor) + counted(verifier) + word(0);
}
inline std::string reply_denied(std::uint32_t xid, std::uint32_t why) {
  return word(xid) + word(1) + word(1) + word(1) + word(why);
}

// Every connection has a thread; the tests' calls come one after the other.
class script_server {
 public:
  using handler = std::function<void(served_connection &, const served_call &)>;

  // `port`: 0 for one of the system's choice. Not `good` where there is none to have.
  explicit script_server(handler answer, int type = SOCK_STREAM, int family = AF_INET,
                         std::uint16_t port = 0)
      : answer_(std::move(answer)), type_(type) {
    fd_ = socket(family, type | SOCK_CLOEXEC, 0);
    if (family == AF_INET6) {
      auto &v6 = reinterpret_cast<sockaddr_in6 &>(address);
      v6.sin6_family = AF_INET6;
      v6.sin6_addr = in6addr_loopback;
    } else {
      auto &v4 = reinterpret_cast<sockaddr_in &>(address);
      v4.sin_family = AF_INET;
      v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      v4.sin_port = htons(port);
    }
    socklen_t size = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    good = bind(fd_, reinterpret_cast<sockaddr *>(&address), size) == 0 &&
           (type != SOCK_STREAM || listen(fd_, 8) == 0) &&
           getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &size) == 0;
    if (good) thread_ = std::thread([this] { type_ == SOCK_STREAM ? serve() : serve_datagrams(); });
  }
  ~script_server() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    close(fd_);
  }
  std::vector<served_call> calls() {
    std::lock_guard lock(mutex_);
    return calls_;
  }

  sockaddr_storage address = {};
  bool good = false;
  std::atomic<int> connections{0};

 private:
  bool readable(int fd) const {
    while (!stop_) {
      pollfd entry = {fd, POLLIN, 0};
      if (poll(&entry, 1, 10) > 0) return true;
    }
    return false;
  }
  bool read_exactly(int fd, std::string &to, std::size_t size) const {
    std::size_t start = to.size();
    to.resize(start + size);
    while (size > 0) {
      if (!readable(fd)) return false;
      ssize_t got = recv(fd, to.data() + (to.size() - size), size, 0);
      if (got <= 0) return false;
      size -= static_cast<std::size_t>(got);
    }
    return true;
  }
  bool read_record(int fd, const served_connection &connection, std::string &bytes) const {
    for (bool last = false; !last;) {
      std::string header, fragment;
      if (!read_exactly(fd, header, 4)) return false;
      last = (word_at(header, 0) & 0x80000000) != 0;
      if (!read_exactly(fd, fragment, word_at(header, 0) & 0x7fffffff)) return false;
      if (connection.open && !fragment.empty()) connection.open(fragment);
      bytes += fragment;
    }
    return true;
  }
  static std::uint32_t word_at(const std::string &bytes, std::size_t at) {
    return at + 4 > bytes.size() ? 0
                                 : XDR::load32(reinterpret_cast<const std::uint8_t *>(&bytes[at]));
  }
  served_call parse(const std::string &bytes) {
    served_call call;
    call.raw = bytes;
    call.xid = word_at(bytes, 0);
    call.program = word_at(bytes, 12);
    call.version = word_at(bytes, 16);
    call.procedure = word_at(bytes, 20);
    call.flavor = word_at(bytes, 24);
    std::uint32_t size = word_at(bytes, 28);
    if (bytes.size() >= 32 + size) call.credential = bytes.substr(32, size);
    std::size_t verifier = 32 + ((size + 3) & ~3u);
    std::size_t rest = verifier + 8 + ((word_at(bytes, verifier + 4) + 3) & ~3u);
    if (bytes.size() >= rest) call.arguments = bytes.substr(rest);
    std::lock_guard lock(mutex_);
    calls_.push_back(call);
    return call;
  }
  void serve() {
    std::vector<std::thread> threads;
    while (readable(fd_)) {
      int peer = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (peer < 0) break;
      connections++;
      threads.emplace_back([this, peer] { serve_connection(peer); });
    }
    for (std::thread &thread : threads) thread.join();
  }
  void serve_connection(int peer) {
    served_connection connection(peer, stop_);
    while (!connection.closing) {
      std::string bytes;
      if (!read_record(peer, connection, bytes)) break;
      served_call call = parse(bytes);
      std::lock_guard turn(turn_);
      answer_(connection, call);
    }
    close(peer);
  }
  void serve_datagrams() {
    std::string bytes(65536, '\0');
    while (readable(fd_)) {
      sockaddr_storage from = {};
      socklen_t size = sizeof from;
      ssize_t got =
          recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
      if (got < 0) return;
      served_call call = parse(bytes.substr(0, static_cast<std::size_t>(got)));
      datagram_from_ = from;
      datagram_size_ = size;
      served_connection connection(-1, stop_);
      answer_(connection, call);
    }
  }

 public:
  // From inside a datagram server's function.
  void send_datagram(std::string_view bytes) const {
    sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&datagram_from_),
           datagram_size_);
  }

 private:
  handler answer_;
  int type_;
  int fd_ = -1;
  sockaddr_storage datagram_from_ = {};
  socklen_t datagram_size_ = 0;
  std::atomic<bool> stop_{false};
  std::mutex turn_;   // one call is answered at a time
  std::mutex mutex_;  // guards the calls
  std::vector<served_call> calls_;
  std::thread thread_;
};

// A handle on a connection to such a server; null with the create error set.
inline std::unique_ptr<CLIENT> open_tcp(const script_server &server, std::uint32_t program = 1,
                                        std::uint32_t version = 1, unsigned flags = CLNT_QUIET) {
  int socket = -1;
  return clnt_tcp_create(server.address, program, version, socket, 0, 0, flags);
}

// A TCP address on which nobody listens.
inline sockaddr_storage nobody_there() {
  return script_server([](served_connection &, const served_call &) {}).address;
}

}  // namespace qvr
