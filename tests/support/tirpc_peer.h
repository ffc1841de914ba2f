// The published RPC library as the other party: a server of it in a process of its own, and a
// client of it to be compared with. Its headers stay out of here: they define half of our names.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace qvr::test {

inline constexpr std::uint32_t TIRPC_PROGRAM = 0x20004711;
inline constexpr std::uint32_t TIRPC_VERSION = 3;
enum tirpc_procedure : std::uint32_t {
  TIRPC_NULL = 0,
  TIRPC_ECHO = 1,   // counted bytes in, the same out
  TIRPC_BYTES = 2,  // a number in, so many counted bytes out
};

// On 127.0.0.1, at a port of the system's choice; ends with the object.
class tirpc_server {
 public:
  // `fragment`: size of the server's buffers, and so of its fragments, in bytes.
  explicit tirpc_server(bool udp = false, unsigned fragment = 0);
  ~tirpc_server();
  tirpc_server(const tirpc_server &) = delete;
  tirpc_server &operator=(const tirpc_server &) = delete;
  std::uint16_t port() const { return port_; }

 private:
  pid_t child_ = -1;
  std::uint16_t port_ = 0;
};

// A client of the published library. Null calls that were answered, of `count`.
class tirpc_client {
 public:
  tirpc_client(std::uint16_t port, bool udp = false, std::uint32_t program = TIRPC_PROGRAM,
               std::uint32_t version = TIRPC_VERSION);
  ~tirpc_client();
  tirpc_client(const tirpc_client &) = delete;
  tirpc_client &operator=(const tirpc_client &) = delete;
  bool good() const { return handle_ != nullptr; }
  std::size_t null_calls(std::size_t count);

 private:
  void *handle_ = nullptr;
};

}  // namespace qvr::test
