// The TCP client handle.
#pragma once

#include <memory>
#include <string>

#include "client.h"
#include "record_stream.h"
#include "rpc_message.h"
#include "tcp_transport.h"

namespace qvr {

// What a handle without a time-out of its own stores as one.
inline constexpr std::chrono::seconds CLNT_NO_TIMEOUT{86400};
// A stream that is asked for no receive size of its own reads this much at a time: bulk replies
// come in few reads.
inline constexpr int CLNT_RECEIVE_SIZE = 128 * 1024;

class clnt_tcp final : public CLIENT {
 public:
  // On a connected socket. Null with errno when there is no memory for the buffers.
  static std::unique_ptr<clnt_tcp> make(int socket, const sockaddr_storage &peer,
                                        std::uint32_t program, std::uint32_t version, int send_size,
                                        int receive_size);
  ~clnt_tcp() override;

  clnt_stat call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                 std::chrono::microseconds timeout) override;
  const rpc_err_t &last_error() const override { return transport_.error; }
  const sockaddr_storage &peer() const override { return transport_.peer; }
  int socket() const override { return transport_.socket; }
  void set_timeout(std::chrono::microseconds timeout) override;
  void set_no_timeout() override;
  std::chrono::microseconds timeout() const override { return transport_.timeout; }
  void close_on_destroy(bool close) override { close_on_destroy_ = close; }
  std::uint32_t auth_mask() const override { return auth_mask_; }
  void set_auth_mask(std::uint32_t mask) override { auth_mask_ = mask; }
  bool reply_seen() const override { return reply_seen_; }
  void set_reply_seen(bool seen) override { reply_seen_ = seen; }
  clnt_wait_mode wait_mode() const override { return transport_.wait_mode; }
  void set_wait_mode(clnt_wait_mode mode) override { transport_.wait_mode = mode; }
  bool set_poll(std::chrono::microseconds interval, clnt_cancel_t cancel) override;
  // The interval equals the time-out again, nobody is asked.
  void reset_poll();
  bool set_encrypted() override;
  bool encrypted() const override { return encrypted_; }
  bool set_clear_reply() override;
  xdr_record_stream *stream() override { return stream_.get(); }
  bool control(unsigned command, void *argument) override;
  void set_error(clnt_stat status, int error_or_why) override;

  std::uint32_t program() const override { return header_.program(); }
  std::uint32_t version() const override { return header_.version(); }
  void set_program(std::uint32_t program) { header_.set_program(program); }
  void set_peek_on_write(bool on) { transport_.peek_on_write = on; }
  // SO_RCVBUF or SO_SNDBUF, in bytes.
  bool get_buffer(int option, int &size) const;
  bool set_buffer(int option, int size);
  bool set_nodelay(bool on);
  // The keep-alive settings of the environment.
  bool apply_keepalive();
  // Statistics under that stream name; null ends them.
  void set_stats(const char *name);
  clnt_poll_t poll() const { return {transport_.poll_interval, transport_.cancel}; }
  // A socket that was made for this handle: in blocking mode.
  void own_socket() {
    close_on_destroy_ = true;
    transport_.blocking_state = 1;
  }
  tcp_transport &transport() { return transport_; }

 private:
  clnt_tcp(int socket, const sockaddr_storage &peer, std::uint32_t program, std::uint32_t version)
      : transport_(socket, peer), header_(rpc_first_xid(), program, version) {}

  struct round_t;
  clnt_stat rounds(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode, bool send_only);
  bool send_call(std::uint32_t procedure, xdr_encoder encode, bool send_now);
  bool read_reply(rpc_reply_t &reply);
  bool take_results(const rpc_reply_t &reply, xdr_decoder decode);
  void over_long_fragment(std::uint64_t length);
  static void over_long(void *handle, std::uint64_t length);

  tcp_transport transport_;
  rpc_call_header header_;
  std::unique_ptr<xdr_record_stream> stream_;
  bool close_on_destroy_ = false;
  bool reply_seen_ = false;
  bool clear_reply_ = false;
  bool encrypted_ = false;
  bool channel_lost_ = false;   // encryption could not be taken up again: nothing more goes out
  bool decoded_reply_ = false;  // the record that was read last is a reply that was decoded
  std::uint32_t auth_mask_ = AUTH_METHOD_ALL;
};

}  // namespace qvr
