// An RPC client of the tests' own over plain sockets (RFC 5531): it shares nothing with the
// project's transport, so that each can be held against the other.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvr::test {

// Bytes in XDR form (RFC 4506), appended.
class raw_out {
 public:
  raw_out &u32(std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return *this;
  }
  raw_out &u64(std::uint64_t value) {
    return u32(static_cast<std::uint32_t>(value >> 32)).u32(static_cast<std::uint32_t>(value));
  }
  raw_out &text(std::string_view value) {
    u32(static_cast<std::uint32_t>(value.size()));
    bytes += value;
    bytes.append(-value.size() & 3, '\0');
    return *this;
  }
  raw_out &raw(std::string_view value) {
    bytes += value;
    return *this;
  }
  std::string bytes;
};

// A cursor over such bytes. Reading past the end gives zeros and clears `good`.
class raw_in {
 public:
  explicit raw_in(std::string bytes) : bytes_(std::move(bytes)) {}
  std::uint32_t u32() {
    std::uint32_t value = 0;
    for (char c : raw(4)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  std::uint64_t u64() {
    std::uint64_t high = u32();
    return high << 32 | u32();
  }
  std::string text() {
    std::uint32_t size = u32();
    std::string value = raw(size);
    raw(-size & 3);
    return value;
  }
  std::string raw(std::size_t size) {
    if (size > bytes_.size() - at_) {
      good = false;
      at_ = bytes_.size();
      return {};
    }
    at_ += size;
    return bytes_.substr(at_ - size, size);
  }
  std::size_t left() const { return bytes_.size() - at_; }
  bool good = true;

 private:
  std::string bytes_;
  std::size_t at_ = 0;
};

// A descriptor that closes itself.
class raw_socket {
 public:
  raw_socket(const std::string &address, std::uint16_t port, int type = SOCK_STREAM) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    fd_ = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    connected_ = connect(fd_, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0;
  }
  ~raw_socket() { close(fd_); }
  raw_socket(const raw_socket &) = delete;
  raw_socket &operator=(const raw_socket &) = delete;
  bool connected() const { return connected_; }
  int fd() const { return fd_; }

  bool put(std::string_view bytes) {
    while (!bytes.empty()) {
      ssize_t put = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (put <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
  }
  // Exactly `size` bytes, or what came before the end or the time-out.
  std::string get(std::size_t size,
                  std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) {
    std::string bytes;
    while (bytes.size() < size) {
      pollfd ready{fd_, POLLIN, 0};
      if (poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) break;
      std::string part(std::min<std::size_t>(size - bytes.size(), 1 << 20), '\0');
      ssize_t got = recv(fd_, part.data(), part.size(), 0);
      if (got <= 0) break;
      bytes.append(part, 0, static_cast<std::size_t>(got));
    }
    return bytes;
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
};

struct raw_auth {
  std::uint32_t flavour = 0;
  std::string body;
};

// What came back of a call. Absent members were not reached.
struct raw_reply {
  bool arrived = false;  // a whole reply message of this call
  std::uint32_t fragments = 0;
  std::optional<std::uint32_t> denied;  // reject_stat
  std::uint32_t why = 0;                // auth_stat
  raw_auth verifier;
  std::uint32_t accept = 0;
  std::string results;
  raw_in in() const { return raw_in(results); }
};

class raw_client {
 public:
  raw_client(std::uint16_t port, std::uint32_t program, std::uint32_t version,
             const std::string &address = "127.0.0.1", bool udp = false)
      : socket_(address, port, udp ? SOCK_DGRAM : SOCK_STREAM),
        program_(program),
        version_(version),
        udp_(udp) {}

  raw_auth credential, verifier;
  std::chrono::milliseconds timeout{10000};
  raw_socket &socket() { return socket_; }

  std::string message(std::uint32_t procedure, std::string_view arguments) {
    raw_out out;
    out.u32(++xid_).u32(0).u32(2).u32(program_).u32(version_).u32(procedure);
    out.u32(credential.flavour).text(credential.body);
    out.u32(verifier.flavour).text(verifier.body).raw(arguments);
    return out.bytes;
  }

  raw_reply call(std::uint32_t procedure, std::string_view arguments = {}) {
    std::string bytes = message(procedure, arguments);
    if (!udp_)
      bytes = raw_out().u32(0x80000000 | static_cast<std::uint32_t>(bytes.size())).bytes + bytes;
    raw_reply reply;
    if (!socket_.put(bytes)) return reply;
    return receive();
  }

  // The reply to the last message.
  raw_reply receive() {
    raw_reply reply;
    std::string bytes;
    if (udp_) {
      bytes.resize(65536);
      pollfd ready{socket_.fd(), POLLIN, 0};
      if (poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) return reply;
      ssize_t got = recv(socket_.fd(), bytes.data(), bytes.size(), 0);
      if (got < 0) return reply;
      bytes.resize(static_cast<std::size_t>(got));
    } else if (!read_record(bytes, reply.fragments)) {
      return reply;
    }
    raw_in in(bytes);
    if (in.u32() != xid_ || in.u32() != 1 || !in.good) return reply;
    if (in.u32() == 1) {
      reply.denied = in.u32();
      reply.why = in.u32();
      reply.arrived = in.good;
      return reply;
    }
    reply.verifier.flavour = in.u32();
    reply.verifier.body = in.text();
    reply.accept = in.u32();
    reply.arrived = in.good;
    reply.results = in.raw(in.left());
    return reply;
  }

 private:
  bool read_record(std::string &bytes, std::uint32_t &fragments) {
    for (bool last = false; !last;) {
      std::string mark = socket_.get(4, timeout);
      if (mark.size() < 4) return false;
      std::uint32_t word = raw_in(mark).u32();
      last = (word & 0x80000000) != 0;
      std::size_t size = word & 0x7fffffff;
      std::string part = socket_.get(size, timeout);
      if (part.size() < size) return false;
      bytes += part;
      fragments++;
    }
    return true;
  }

  raw_socket socket_;
  std::uint32_t program_, version_;
  bool udp_;
  std::uint32_t xid_ = 0x51000000;
};

}  // namespace qvr::test
