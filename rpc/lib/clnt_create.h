// Making client handles. Every constructor returns a handle, or null with the reason in the calling
// thread's create error (clnt_error.h). Any thread.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

#include "client.h"

namespace qvr {

enum clnt_create_flag : unsigned {
  // A failed connect is told by the create error alone: no messages. For connections that no
  // user's request needs, as those to a port mapper.
  CLNT_QUIET = 1,
  // The host has a further address. A port that was remembered may have been seen at that one, so
  // that its refusal here is no failure yet: no messages of it.
  CLNT_MORE_ADDRESSES = 2,
};

// By host name. An empty host means "localhost", an empty protocol "tcp"; the protocol is compared
// without regard to case. Sizes are in bytes, of the socket's and the stream's buffers; 0 takes the
// defaults. The handle's time-out is 30 seconds for TCP and 25 for UDP.
std::unique_ptr<CLIENT> clnt_create_host(std::string_view host, std::uint32_t program,
                                         std::uint32_t version, std::string_view protocol,
                                         int send_size, int receive_size, unsigned flags = 0);
inline std::unique_ptr<CLIENT> clnt_create_simple(std::string_view host, std::uint32_t program,
                                                  std::uint32_t version,
                                                  std::string_view protocol) {
  return clnt_create_host(host, program, version, protocol, 0, 0);
}

// By address (IPv4 or IPv6). A port of 0 is looked up with the port mapper at that address.
// `socket`: a connected socket that the handle shall use but not close, or below 0: one is made,
// stored there, and closed with the handle.
std::unique_ptr<CLIENT> clnt_tcp_create(const sockaddr_storage &address, std::uint32_t program,
                                        std::uint32_t version, int &socket, int send_size,
                                        int receive_size, unsigned flags = 0);
// The same with a connect that takes at most `seconds`.
std::unique_ptr<CLIENT> clnt_tcp_create_wait(const sockaddr_storage &address, std::uint32_t program,
                                             std::uint32_t version, int &socket, int send_size,
                                             int receive_size, int seconds, unsigned flags = 0);

// Datagrams: a request is repeated every `retry` until the call's time-out has passed.
inline constexpr int CLNT_UDP_SIZE = 8800;
std::unique_ptr<CLIENT> clnt_udp_create(const sockaddr_storage &address, std::uint32_t program,
                                        std::uint32_t version, std::chrono::microseconds retry,
                                        int &socket, int send_size = CLNT_UDP_SIZE,
                                        int receive_size = CLNT_UDP_SIZE, unsigned flags = 0);

}  // namespace qvr
