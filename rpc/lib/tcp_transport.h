// The socket below a TCP handle: transfers with time-outs, cancelling, peeking and statistics.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "client.h"
#include "record_stream.h"
#include "rpc_stats.h"

namespace qvr {

// Which handles use blocking I/O: QVR_BLOCKING_RPC.
enum rpc_io_mode : int {
  RPC_IO_TRUE,   // those without a time-out
  RPC_IO_FALSE,  // none but those that never peek
  RPC_IO_MUST,   // all
};
rpc_io_mode get_rpc_io_mode();
void set_rpc_io_mode(rpc_io_mode mode);
// TRUE, FALSE or MUST without regard to case; another word leaves the mode. Null: unset.
rpc_io_mode rpc_io_mode_from(const char *word, rpc_io_mode otherwise);

// One connection; one thread at a time. A transfer answers with the bytes moved, or -1 with the
// reason in `error`. While `error` holds a reason every transfer fails at once; a call begins by
// clearing it.
class tcp_transport {
 public:
  using clock = std::chrono::steady_clock;
  using duration = std::chrono::microseconds;

  explicit tcp_transport(int socket, const sockaddr_storage &peer);

  std::int64_t read(std::uint8_t *first, std::size_t first_size, std::uint8_t *second,
                    std::size_t second_size);
  std::int64_t write(const std::uint8_t *first, std::size_t first_size, const std::uint8_t *second,
                     std::size_t second_size);

  // A call has been sent: its time runs from here on, and bytes that arrive count as progress only
  // once its own reply has begun.
  void begin_call();
  void begin_reply();
  // It was no reply after all: the time since the call was sent counts again.
  void withdraw_reply();
  // Puts the socket into blocking mode unless it is known to be in it.
  void restore_blocking();
  void close_socket();
  void fail(clnt_stat status, int error);

  int socket = -1;
  int blocking_state = -1;  // 1 blocking, 0 non-blocking, -1 unknown
  duration timeout{0};
  clnt_wait_mode wait_mode = CLNT_WAIT_NONE;
  duration poll_interval{0};
  clnt_cancel_t cancel;
  bool peek_on_write = false;
  rpc_stats stats;
  rpc_err_t error;
  sockaddr_storage peer = {};
  xdr_record_stream *stream = nullptr;  // for telling bytes of a reply from others

 private:
  enum class wait_result { ready, again, failed };
  struct direction;

  bool use_blocking() const;
  bool align_blocking(bool blocking);
  bool set_blocking(bool blocking);
  bool may_go_on(clock::time_point since, const direction &way);
  bool ask_cancel(const duration *elapsed);
  wait_result wait(const direction &way, clock::time_point since);
  std::int64_t take_peeked(std::uint8_t *first, std::size_t first_size, std::uint8_t *second,
                           std::size_t second_size);
  bool peek();
  bool write_vector(const iovec *parts, std::size_t count);
  void note_would_block(rpc_stats_counters &counters);
  void note(rpc_stats_counters &counters, const iovec *parts, std::size_t moved);
  void note_progress();
  void log_write_failure(int error_number) const;

  clock::time_point progress_{};  // when the call was sent, or the last byte of its reply came
  clock::time_point sent_{};
  clock::time_point last_exit_{};
  bool in_reply_ = false;
  std::uint64_t begun_ = 0;
  bool cut_short_ = false;  // a write ended inside its bytes: the peer is out of step
  std::uint8_t peeked_[4] = {};
  std::size_t peeked_count_ = 0;
};

}  // namespace qvr
