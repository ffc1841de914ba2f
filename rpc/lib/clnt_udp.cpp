// The UDP client handle: one datagram a call, repeated until it is answered.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include "clnt_create.h"
#include "clnt_error.h"
#include "debug_words.h"
#include "hosts.h"
#include "ks_sockets.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "pmap_lookup.h"
#include "port_bind.h"
#include "record_stream.h"
#include "rpc_message.h"

namespace qvr {

namespace {

using std::chrono::microseconds;
using clock_type = std::chrono::steady_clock;

constexpr int refresh_tries = 2;

class clnt_udp final : public CLIENT {
 public:
  clnt_udp(int socket, const sockaddr_storage &peer, std::uint32_t program, std::uint32_t version,
           microseconds retry, std::uint32_t send_size, std::uint32_t receive_size)
      : socket_(socket),
        peer_(peer),
        header_(rpc_first_xid(), program, version),
        retry_(retry),
        send_size_(send_size),
        datagram_(receive_size, '\0') {
    auth = authnone_create();
  }
  ~clnt_udp() override {
    auth.reset();
    if (close_on_destroy_) ks_close(socket_);
  }

  clnt_stat call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                 microseconds timeout) override;
  const rpc_err_t &last_error() const override { return error_; }
  const sockaddr_storage &peer() const override { return peer_; }
  int socket() const override { return socket_; }
  void set_timeout(microseconds timeout) override { timeout_ = timeout; }
  void set_no_timeout() override { timeout_ = std::chrono::seconds{86400}; }
  microseconds timeout() const override { return timeout_.value_or(microseconds{0}); }
  void close_on_destroy(bool close) override { close_on_destroy_ = close; }
  bool control(unsigned command, void *argument) override;
  void set_error(clnt_stat status, int error_or_why) override;

 private:
  bool encode_call(std::uint32_t procedure, xdr_encoder encode, std::string &bytes);
  bool send(const std::string &bytes);
  // The length of the awaited datagram; 0 when `retry_` or the total passed without it.
  std::size_t await(clock_type::time_point end);
  void take(std::size_t size, xdr_decoder decode, bool &refused);

  int socket_;
  bool close_on_destroy_ = false;
  sockaddr_storage peer_;
  rpc_call_header header_;
  microseconds retry_;
  std::optional<microseconds> timeout_;
  std::size_t send_size_;
  std::string datagram_;
  rpc_err_t error_;
};

void clnt_udp::set_error(clnt_stat status, int error_or_why) {
  error_ = {};
  error_.status = status;
  (status == RPC_AUTHERROR ? error_.why : error_.error) = error_or_why;
  error_.socket = socket_;
  error_.has_peer = true;
  error_.peer = peer_;
}

bool clnt_udp::encode_call(std::uint32_t procedure, xdr_encoder encode, std::string &bytes) {
  xdr_memory_writer out;
  auth_call call{header_.bytes(), procedure, header_.next_xid()};
  bool done = out.put_bytes(call.header.data(), call.header.size()) && out.put_u32(procedure) &&
              auth->marshal(out, call) && (!encode || auth->put_arguments(out, encode)) &&
              out.bytes().size() <= send_size_;
  bytes = out.take();
  if (!done && error_.status == RPC_SUCCESS) set_error(RPC_CANTENCODEARGS, 0);
  return done;
}

bool clnt_udp::send(const std::string &bytes) {
  socklen_t length = peer_.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  auto *to = reinterpret_cast<const sockaddr *>(&peer_);
  if (ks_sendto(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL, to, length) ==
      static_cast<ssize_t>(bytes.size())) {
    return true;
  }
  int saved = errno;
  KS_DEBUG(1, "%s:%d Failed to send UDP packet: %s\n", __FILE__, __LINE__, ks_strerror(saved));
  set_error(RPC_CANTSEND, saved);
  return false;
}

std::size_t clnt_udp::await(clock_type::time_point end) {
  for (;;) {
    if (debug_words.interrupted.load(std::memory_order_relaxed) != 0) {
      set_error(RPC_FAILED, ECONNRESET);
      return 0;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(end - clock_type::now());
    if (left.count() <= 0) return 0;
    pollfd entry = {socket_, POLLIN | POLLRDNORM, 0};
    auto most = std::min(left, std::chrono::milliseconds{5000});
    int ready = ks_poll(&entry, 1, static_cast<int>(most.count()));
    if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
    ssize_t size = -1;
    if (ready > 0) {
      size =
          ks_recvfrom(socket_, datagram_.data(), datagram_.size(), MSG_DONTWAIT, nullptr, nullptr);
      if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    }
    if (size < 0) {
      int saved = errno;
      KS_DEBUG(1, "%s:%d Failed to receive UDP packet from %s: %s", __FILE__, __LINE__,
               ks_address_text(reinterpret_cast<const sockaddr *>(&peer_)).c_str(),
               ks_strerror(saved));
      set_error(RPC_CANTRECV, saved);
      return 0;
    }
    if (size < 4) continue;
    auto *word = reinterpret_cast<const std::uint8_t *>(datagram_.data());
    if (XDR::load32(word) == header_.xid()) return static_cast<std::size_t>(size);
  }
}

void clnt_udp::take(std::size_t size, xdr_decoder decode, bool &refused) {
  xdr_memory_reader in(std::string_view(datagram_).substr(4, size - 4));
  rpc_reply_t reply;
  refused = false;
  if (!xdr_get_reply(in, reply)) {
    set_error(RPC_CANTDECODERES, 0);
    return;
  }
  rpc_reply_error(reply, error_);
  refused = error_.status != RPC_SUCCESS;
  if (refused) return;
  if (!auth->validate(reply.verifier, header_.xid())) {
    set_error(RPC_AUTHERROR, AUTH_INVALIDRESP);
  } else if (decode && !auth->get_results(in, decode)) {
    set_error(RPC_CANTDECODERES, 0);
  }
}

clnt_stat clnt_udp::call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                         microseconds timeout) {
  error_ = {};
  if (!auth) {
    set_error(RPC_AUTHERROR, AUTH_FAILED);
    return error_.status;
  }
  microseconds total = timeout_.value_or(timeout);
  for (int refreshes = refresh_tries;; refreshes--) {
    std::string bytes;
    if (!encode_call(procedure, encode, bytes)) return error_.status;
    auto end = clock_type::now() + total;
    std::size_t size = 0;
    do {
      if (!send(bytes)) return error_.status;
      size = await(std::min(end, clock_type::now() + retry_));
    } while (size == 0 && error_.status == RPC_SUCCESS && clock_type::now() < end);
    if (size == 0) {
      if (error_.status == RPC_SUCCESS) set_error(RPC_TIMEDOUT, 0);
      return error_.status;
    }
    bool refused;
    take(size, decode, refused);
    if (!refused || refreshes == 0) return error_.status;
    rpc_err_t kept = error_;
    if (!auth->refresh()) {
      error_ = kept;
      return error_.status;
    }
    error_ = {};
  }
}

struct control_row {
  unsigned command;
  bool needs_argument;
  bool (*run)(CLIENT &handle, microseconds &retry, void *argument);
};

constexpr control_row rows[] = {
    {CLSET_TIMEOUT, true,
     [](CLIENT &h, microseconds &, void *a) {
       h.set_timeout(*static_cast<microseconds *>(a));
       return true;
     }},
    {CLGET_TIMEOUT, true,
     [](CLIENT &h, microseconds &, void *a) {
       *static_cast<microseconds *>(a) = h.timeout();
       return true;
     }},
    {CLGET_SERVER_ADDR, true,
     [](CLIENT &h, microseconds &, void *a) {
       *static_cast<sockaddr_storage *>(a) = h.peer();
       return true;
     }},
    {CLSET_RETRY_TIMEOUT, true,
     [](CLIENT &, microseconds &retry, void *a) {
       retry = *static_cast<microseconds *>(a);
       return true;
     }},
    {CLGET_RETRY_TIMEOUT, true,
     [](CLIENT &, microseconds &retry, void *a) {
       *static_cast<microseconds *>(a) = retry;
       return true;
     }},
    {CLGET_FD, true,
     [](CLIENT &h, microseconds &, void *a) {
       *static_cast<int *>(a) = h.socket();
       return true;
     }},
    {CLSET_FD_CLOSE, false,
     [](CLIENT &h, microseconds &, void *) {
       h.close_on_destroy(true);
       return true;
     }},
    {CLSET_FD_NCLOSE, false,
     [](CLIENT &h, microseconds &, void *) {
       h.close_on_destroy(false);
       return true;
     }},
};

bool clnt_udp::control(unsigned command, void *argument) {
  for (const control_row &row : rows) {
    if (row.command != command) continue;
    return (argument != nullptr || !row.needs_argument) && row.run(*this, retry_, argument);
  }
  return false;
}

// A datagram socket from the connection range, non-blocking; -1 with the create error set.
int open_datagram_socket(int family, bool quiet) {
  int fd = ks_socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) {
    int saved = errno;
    KS_DEBUG(1, "Failed to create socket of \"%d\" family", family);
    set_create_err(RPC_SYSTEMERROR, saved);
    return -1;
  }
  if (rpc_bind_from_range(fd, family) == 0) return fd;
  int saved = errno;
  if (!quiet) {
    char host[256] = "";
    ks_gethostname(host, sizeof host);
    msg_print(61320, saved + 12000, MSG_STDERR,
              "Cannot bind socket to connection port in configured port range on system %s: %s\n",
              {{MSG_ARG_HOST, host}, {MSG_ARG_ERRTEXT, ks_strerror(saved)}});
  }
  ks_close(fd);
  set_create_err(RPC_SYSTEMERROR, saved);
  return -1;
}

}  // namespace

std::unique_ptr<CLIENT> clnt_udp_create(const sockaddr_storage &given, std::uint32_t program,
                                        std::uint32_t version, microseconds retry, int &socket,
                                        int send_size, int receive_size, unsigned flags) {
  sockaddr_storage address = given;
  if (address.ss_family != AF_INET && address.ss_family != AF_INET6) {
    set_create_err(RPC_SYSTEMERROR, EAFNOSUPPORT);
    return nullptr;
  }
  std::uint16_t &port = address.ss_family == AF_INET6
                            ? reinterpret_cast<sockaddr_in6 &>(address).sin6_port
                            : reinterpret_cast<sockaddr_in &>(address).sin_port;
  if (port == 0) {
    std::uint16_t found = pmap_getport_qvr(address, program, version, IPPROTO_UDP, PMAP_PRODUCT);
    if (found == 0) return nullptr;
    port = htons(found);
  }
  bool own = socket < 0;
  int fd = socket;
  if (own) {
    fd = open_datagram_socket(address.ss_family, (flags & CLNT_QUIET) != 0);
    if (fd < 0) return nullptr;
  } else {
    sockaddr_storage local = {};
    socklen_t length = sizeof local;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length) != 0 ||
        local.ss_family != address.ss_family) {
      KS_DEBUG(1, "%s:%d Family mismatch found when creating RPC client\n", __FILE__, __LINE__);
      set_create_err(RPC_SYSTEMERROR, EINVAL);
      return nullptr;
    }
  }
  KS_DEBUG(9, "Creating UDP/%s RPC client handle for socket (%d)\n",
           address.ss_family == AF_INET6 ? "IPv6" : "IPv4", fd);
  auto size_of = [](int size) {
    return xdrrec_buffer_size(static_cast<std::uint32_t>(std::max(size, 0)));
  };
  auto handle = std::make_unique<clnt_udp>(fd, address, program, version, retry, size_of(send_size),
                                           size_of(receive_size));
  handle->close_on_destroy(own);
  socket = fd;
  return handle;
}

}  // namespace qvr
