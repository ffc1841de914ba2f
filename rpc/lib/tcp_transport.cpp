#include "tcp_transport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "debug_words.h"
#include "hosts.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr std::chrono::milliseconds poll_slice{5000};
constexpr std::size_t transfer_max = 0x7ffffffc;

std::atomic<rpc_io_mode> &io_mode() {
  static std::atomic<rpc_io_mode> mode{
      rpc_io_mode_from(ks_getenv("QVR_BLOCKING_RPC"), RPC_IO_TRUE)};
  return mode;
}

bool would_block(int error) {
  return error == EAGAIN || error == ENOMEM || error == EINPROGRESS;
}

}  // namespace

rpc_io_mode rpc_io_mode_from(const char *word, rpc_io_mode otherwise) {
  static constexpr struct {
    const char *word;
    rpc_io_mode mode;
  } rows[] = {{"TRUE", RPC_IO_TRUE}, {"FALSE", RPC_IO_FALSE}, {"MUST", RPC_IO_MUST}};
  if (word == nullptr) return otherwise;
  for (const auto &row : rows) {
    if (strcasecmp(word, row.word) == 0) return row.mode;
  }
  return otherwise;
}

rpc_io_mode get_rpc_io_mode() {
  return io_mode().load(std::memory_order_relaxed);
}

void set_rpc_io_mode(rpc_io_mode mode) {
  io_mode().store(mode, std::memory_order_relaxed);
}

// What reading and writing do alike, but with other words.
struct tcp_transport::direction {
  clnt_stat failed;
  short events;
  bool writing;
};

tcp_transport::tcp_transport(int socket_, const sockaddr_storage &peer_)
    : socket(socket_), peer(peer_) {}

void tcp_transport::fail(clnt_stat status, int error_number) {
  error = {};
  error.status = status;
  error.error = error_number;
  error.socket = socket;
  error.has_peer = true;
  error.peer = peer;
}

void tcp_transport::begin_call() {
  in_reply_ = false;
  progress_ = sent_ = clock::now();
}

void tcp_transport::withdraw_reply() {
  in_reply_ = false;
  progress_ = sent_;
}

void tcp_transport::begin_reply() {
  in_reply_ = true;
  progress_ = last_exit_ = clock::now();
  begun_ = stream->fragment_bytes_begun();
}

void tcp_transport::close_socket() {
  if (socket >= 0) close(socket);
  socket = -1;
}

bool tcp_transport::use_blocking() const {
  if (get_rpc_io_mode() == RPC_IO_MUST || stats.blocking_only) return true;
  return wait_mode == CLNT_WAIT_FOREVER && cancel.function == nullptr &&
         (get_rpc_io_mode() == RPC_IO_TRUE || !peek_on_write);
}

bool tcp_transport::set_blocking(bool blocking) {
  int flags = fcntl(socket, F_GETFL);
  if (flags < 0) return false;
  int wanted = blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
  if (wanted != flags && fcntl(socket, F_SETFL, wanted) != 0) return false;
  blocking_state = blocking ? 1 : 0;
  return true;
}

bool tcp_transport::align_blocking(bool blocking) {
  return blocking_state == (blocking ? 1 : 0) || set_blocking(blocking);
}

void tcp_transport::restore_blocking() {
  if (socket >= 0 && blocking_state != 1) set_blocking(true);
}

bool tcp_transport::ask_cancel(const duration *elapsed) {
  return cancel.function != nullptr && cancel.function(elapsed, cancel.argument);
}

// The tests that stand before a transfer and at each wake-up.
bool tcp_transport::may_go_on(clock::time_point since, const direction &way) {
  if (debug_words.interrupted.load(std::memory_order_relaxed) != 0) {
    fail(RPC_FAILED, ECONNRESET);
    return false;
  }
  duration elapsed{0};
  bool limited = wait_mode != CLNT_WAIT_FOREVER;
  if (limited || cancel.function != nullptr) {
    elapsed = std::chrono::duration_cast<duration>(clock::now() - since);
  }
  if (ask_cancel(&elapsed)) {
    fail(RPC_CANCELLED, 0);
    return false;
  }
  if (limited && !way.writing && elapsed >= timeout) {
    fail(RPC_TIMEDOUT, 0);
    return false;
  }
  return true;
}

tcp_transport::wait_result tcp_transport::wait(const direction &way, clock::time_point since) {
  pollfd entry = {socket, way.events, 0};
  bool peeking = way.writing && peek_on_write && peeked_count_ < sizeof peeked_;
  if (peeking) entry.events |= POLLIN | POLLRDNORM;
  auto now = clock::now();
  // One wait lasts the poll interval; a time-out that ends earlier shortens it.
  auto budget_end = now + std::max<duration>(poll_interval, std::chrono::milliseconds{1});
  if (wait_mode != CLNT_WAIT_FOREVER) budget_end = std::min(budget_end, since + timeout);
  for (;; now = clock::now()) {
    if (debug_words.interrupted.load(std::memory_order_relaxed) != 0) {
      fail(RPC_FAILED, ECONNRESET);
      return wait_result::failed;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(budget_end - now);
    auto slice = std::clamp(left, std::chrono::milliseconds{0}, poll_slice);
    int ready = ::poll(&entry, 1, static_cast<int>(slice.count()));
    if (ready < 0) {
      if (errno == EINTR) continue;
      int saved = errno;
      if (way.writing) {
        KS_DEBUG(1, "%s:%d Failed to select on sockets: %s \n", __FILE__, __LINE__,
                 ks_strerror(saved));
      }
      fail(way.failed, saved);
      return wait_result::failed;
    }
    if (ready > 0) {
      if ((entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        fail(way.failed, ECONNRESET);
        return wait_result::failed;
      }
      if (peeking && (entry.revents & (POLLIN | POLLRDNORM)) != 0) {
        if (!peek()) return wait_result::failed;
        if ((entry.revents & way.events) == 0) return wait_result::again;
      }
      return wait_result::ready;
    }
    if (clock::now() >= budget_end) break;
  }
  // A write's time ends here; a read's is judged with the next look at the socket.
  if (way.writing && wait_mode != CLNT_WAIT_FOREVER && clock::now() - since >= timeout) {
    fail(RPC_TIMEDOUT, 0);
    return wait_result::failed;
  }
  return wait_result::again;
}

void tcp_transport::note_would_block(rpc_stats_counters &counters) {
  counters.nblock++;
  rpc_stats_dump(stats);
}

void tcp_transport::note(rpc_stats_counters &counters, const iovec *parts, std::size_t moved) {
  for (; moved > 0; parts++) {
    std::size_t part = std::min(moved, parts->iov_len);
    rpc_stats_note(stats, counters, parts->iov_base, part);
    moved -= part;
  }
}

// Bytes count when a fragment with content has begun since the last look, or is awaited.
void tcp_transport::note_progress() {
  if (!in_reply_) return;
  std::uint64_t begun = stream->fragment_bytes_begun();
  if (begun == begun_ && !stream->inside_fragment()) return;
  begun_ = begun;
  progress_ = clock::now();
}

std::int64_t tcp_transport::take_peeked(std::uint8_t *first, std::size_t first_size,
                                        std::uint8_t *second, std::size_t second_size) {
  std::size_t part1 = std::min(peeked_count_, first_size);
  std::size_t part2 = std::min(peeked_count_ - part1, second_size);
  if (part1 != 0) std::memcpy(first, peeked_, part1);
  if (part2 != 0) std::memcpy(second, peeked_ + part1, part2);
  std::size_t taken = part1 + part2;
  std::memmove(peeked_, peeked_ + taken, peeked_count_ - taken);
  peeked_count_ -= taken;
  return static_cast<std::int64_t>(taken);
}

std::int64_t tcp_transport::read(std::uint8_t *first, std::size_t first_size, std::uint8_t *second,
                                 std::size_t second_size) {
  static constexpr direction way = {RPC_CANTRECV, POLLIN | POLLRDNORM, false};
  if (first_size + second_size == 0) return 0;
  if (error.status != RPC_SUCCESS) return -1;
  bool blocking = use_blocking();
  if (!align_blocking(blocking)) {
    fail(RPC_CANTRECV, errno);
    return -1;
  }
  if (peeked_count_ != 0) return take_peeked(first, first_size, second, second_size);
  // The direct bytes of a large payload may fill a vector of their own.
  iovec parts[2] = {{first, std::min(first_size, transfer_max)}, {second, second_size}};
  int count = second_size != 0 && parts[0].iov_len == first_size ? 2 : 1;
  std::int64_t result = -1;
  // Inside a reply only the time spent here counts: the caller may take long over what it read.
  if (in_reply_) progress_ += clock::now() - last_exit_;
  while (may_go_on(progress_, way)) {
    ssize_t got = ::readv(socket, parts, count);
    if (got > 0) {
      note(stats.read, parts, static_cast<std::size_t>(got));
      note_progress();
      result = got;
      break;
    }
    if (got == 0) {
      fail(RPC_CANTRECV, ECONNRESET);
      break;
    }
    int saved = errno;
    if (saved == EINTR) continue;
    if (!would_block(saved)) {
      fail(RPC_CANTRECV, saved);
      break;
    }
    note_would_block(stats.read);
    if (blocking) {
      if (!set_blocking(true)) {
        fail(RPC_CANTRECV, errno);
        break;
      }
      continue;
    }
    if (wait(way, progress_) == wait_result::failed) break;
  }
  last_exit_ = clock::now();
  ask_cancel(nullptr);
  return result;
}

// A blocked write looks at the first word of what the peer has to say: a peer that waits for its
// own words to be read is drained to that extent. A word of zeros says nothing.
bool tcp_transport::peek() {
  while (peeked_count_ < sizeof peeked_) {
    ssize_t got =
        ::recv(socket, peeked_ + peeked_count_, sizeof peeked_ - peeked_count_, MSG_DONTWAIT);
    if (got < 0) {
      if (errno == EINTR) continue;
      if (would_block(errno)) return true;
      fail(RPC_CANTSEND, errno);
      return false;
    }
    if (got == 0) {
      fail(RPC_CANTSEND, ECONNRESET);
      return false;
    }
    rpc_stats_note(stats, stats.read, peeked_ + peeked_count_, static_cast<std::size_t>(got));
    peeked_count_ += static_cast<std::size_t>(got);
    static constexpr std::uint8_t nothing[4] = {};
    if (peeked_count_ == sizeof peeked_ && std::memcmp(peeked_, nothing, sizeof nothing) == 0) {
      peeked_count_ = 0;
    }
  }
  return true;
}

void tcp_transport::log_write_failure(int error_number) const {
  if (!debug_on(1)) return;
  bool v6 = peer.ss_family == AF_INET6;
  int port = ntohs(v6 ? reinterpret_cast<const sockaddr_in6 *>(&peer)->sin6_port
                      : reinterpret_cast<const sockaddr_in *>(&peer)->sin_port);
  std::string text = ks_address_text(reinterpret_cast<const sockaddr *>(&peer));
  KS_DEBUG(1, "%s:%d Failed to write to socket %d; peer = %s:[%d], errno = %s\n", __FILE__,
           __LINE__, socket, text.c_str(), port, ks_strerror(error_number));
}

// All of the parts, continuing where a partial transfer stopped.
bool tcp_transport::write_vector(const iovec *given, std::size_t count) {
  static constexpr direction way = {RPC_CANTSEND, POLLOUT | POLLWRNORM, true};
  iovec parts[2] = {given[0], count > 1 ? given[1] : iovec{nullptr, 0}};
  auto since = clock::now();
  while (parts[0].iov_len + parts[1].iov_len > 0) {
    if (!may_go_on(since, way)) return false;
    bool blocking = use_blocking();
    if (!align_blocking(blocking)) {
      fail(RPC_CANTSEND, errno);
      return false;
    }
    msghdr message = {};
    message.msg_iov = parts[0].iov_len != 0 ? parts : parts + 1;
    message.msg_iovlen = parts[0].iov_len != 0 && parts[1].iov_len != 0 ? 2 : 1;
    // A peer that has gone must not end the process.
    ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent < 0) {
      int saved = errno;
      log_write_failure(saved);
      if (saved == EINTR) continue;
      if (!would_block(saved)) {
        fail(RPC_CANTSEND, saved);
        return false;
      }
      note_would_block(stats.wrote);
      if (blocking) {
        if (set_blocking(true)) continue;
        fail(RPC_CANTSEND, errno);
        return false;
      }
      if (wait(way, since) == wait_result::failed) return false;
      continue;
    }
    auto moved = static_cast<std::size_t>(sent);
    cut_short_ = moved < parts[0].iov_len + parts[1].iov_len;
    note(stats.wrote, message.msg_iov, moved);
    if (moved > 0) since = clock::now();
    for (iovec &part : parts) {
      std::size_t done = std::min(moved, part.iov_len);
      part.iov_base = static_cast<char *>(part.iov_base) + done;
      part.iov_len -= done;
      moved -= done;
    }
  }
  return true;
}

std::int64_t tcp_transport::write(const std::uint8_t *first, std::size_t first_size,
                                  const std::uint8_t *second, std::size_t second_size) {
  if (error.status != RPC_SUCCESS) return -1;
  if (cut_short_) {
    fail(RPC_CANTSEND, EPIPE);
    return -1;
  }
  auto part = [](const std::uint8_t *bytes, std::size_t size) {
    return iovec{const_cast<std::uint8_t *>(bytes), size};
  };
  bool done = true;
  std::size_t total = first_size + second_size;
  while (done && first_size > transfer_max) {
    iovec large = part(first, transfer_max);
    done = write_vector(&large, 1);
    first += transfer_max;
    first_size -= transfer_max;
  }
  if (done && first_size + second_size > transfer_max) {
    iovec both[2] = {part(first, first_size), part(second, second_size)};
    done = write_vector(both, 1) && write_vector(both + 1, 1);
  } else if (done) {
    iovec both[2] = {part(first, first_size), part(second, second_size)};
    done = write_vector(both, 2);
  }
  ask_cancel(nullptr);
  return done ? static_cast<std::int64_t>(total) : -1;
}

}  // namespace qvr
