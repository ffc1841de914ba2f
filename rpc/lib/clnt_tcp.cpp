// The TCP handle: its call loop and its life.
#include "clnt_tcp.h"

#include <unistd.h>

#include <cerrno>

#include "debug_words.h"
#include "kstr_fallback.h"

namespace qvr {

namespace {

constexpr int refresh_tries = 2;

tcp_transport &transport_of(void *handle) {
  return *static_cast<tcp_transport *>(handle);
}

}  // namespace

std::unique_ptr<clnt_tcp> clnt_tcp::make(int socket, const sockaddr_storage &peer,
                                         std::uint32_t program, std::uint32_t version,
                                         int send_size, int receive_size) {
  std::unique_ptr<clnt_tcp> handle(new clnt_tcp(socket, peer, program, version));
  if (receive_size == 0) receive_size = CLNT_RECEIVE_SIZE;
  handle->stream_ = xdrrec2_create_vectored(
      &handle->transport_, static_cast<std::uint32_t>(send_size),
      static_cast<std::uint32_t>(receive_size),
      [](void *to, std::uint8_t *b1, std::size_t s1, std::uint8_t *b2, std::size_t s2) {
        return transport_of(to).read(b1, s1, b2, s2);
      },
      [](void *to, const std::uint8_t *b1, std::size_t s1, const std::uint8_t *b2, std::size_t s2) {
        return transport_of(to).write(b1, s1, b2, s2);
      });
  if (!handle->stream_) return nullptr;
  handle->transport_.stream = handle->stream_.get();
  handle->stream_->set_fragmax(rpc_stats_fragmax(), over_long, handle.get());
  handle->auth = authnone_create();
  return handle;
}

clnt_tcp::~clnt_tcp() {
  // The credential may still look at the handle.
  auth.reset();
  rpc_stats_stop(transport_.stats, stream_.get(), false);
  if (!close_on_destroy_) return;
  transport_.restore_blocking();
  transport_.close_socket();
}

void clnt_tcp::over_long(void *handle, std::uint64_t length) {
  static_cast<clnt_tcp *>(handle)->over_long_fragment(length);
}

void clnt_tcp::over_long_fragment(std::uint64_t length) {
  KS_DEBUG(0, "pid %u frag size %lu, closing connection\n", static_cast<unsigned>(getpid()),
           static_cast<unsigned long>(length));
  transport_.close_socket();
  transport_.fail(RPC_CANTRECV, EFBIG);
}

void clnt_tcp::set_error(clnt_stat status, int error_or_why) {
  transport_.fail(status, status == RPC_AUTHERROR ? 0 : error_or_why);
  if (status == RPC_AUTHERROR) transport_.error.why = error_or_why;
}

clnt_stat clnt_tcp::call(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                         std::chrono::microseconds timeout) {
  transport_.error = {};
  if (!auth) {
    set_error(RPC_AUTHERROR, AUTH_FAILED);
    return RPC_AUTHERROR;
  }
  if (transport_.wait_mode == CLNT_WAIT_NONE) {
    transport_.timeout = timeout;
    if (transport_.cancel.function == nullptr) transport_.poll_interval = timeout;
  }
  bool send_only = transport_.wait_mode != CLNT_WAIT_FOREVER && transport_.timeout.count() == 0;
  clnt_stat status = rounds(procedure, encode, decode, send_only);
  clear_reply_ = false;
  return status;
}

// Takes encryption off a stream for one reply and puts it back, however the call ends.
struct clnt_tcp::round_t {
  clnt_tcp &handle;
  xdrrec_crypt_ops ops;
  bool off = false;

  explicit round_t(clnt_tcp &handle_) : handle(handle_) {
    if (handle.clear_reply_ && handle.stream_->encrypted()) off = handle.stream_->crypt_off(&ops);
  }
  ~round_t() {
    if (off && !handle.stream_->crypt_on(ops)) handle.channel_lost_ = true;
  }
};

clnt_stat clnt_tcp::rounds(std::uint32_t procedure, xdr_encoder encode, xdr_decoder decode,
                           bool send_only) {
  rpc_err_t &error = transport_.error;
  for (int refreshes = refresh_tries;;) {
    if (auth->should_refresh(send_only) && !auth->refresh()) {
      set_error(RPC_AUTHERROR, AUTH_FAILED);
      return error.status;
    }
    error = {};
    // What was asked for by a write whose channel has gone stays unsaid.
    if (channel_lost_) transport_.fail(RPC_CANTSEND, EPIPE);
    if (!send_call(procedure, encode, decode || !send_only)) return error.status;
    transport_.begin_call();
    if (send_only) {
      if (decode) transport_.fail(RPC_TIMEDOUT, 0);
      return error.status;
    }
    rpc_reply_t reply;
    {
      round_t plain_reply(*this);
      if (!read_reply(reply)) return error.status;
      rpc_reply_error(reply, error);
      if (error.status == RPC_SUCCESS) {
        take_results(reply, decode);
        return error.status;
      }
    }
    error.socket = transport_.socket;
    error.has_peer = true;
    error.peer = transport_.peer;
    rpc_err_t refused = error;
    if (error.status == RPC_AUTHERROR && error.why == AUTH_REJECTEDCRED && !reply_seen_ &&
        kstr_fall_back(*this)) {
      continue;
    }
    if (!auth || refreshes-- == 0 || !auth->refresh()) {
      error = refused;
      return error.status;
    }
  }
}

bool clnt_tcp::send_call(std::uint32_t procedure, xdr_encoder encode, bool send_now) {
  XDR &out = *stream_;
  rpc_err_t &error = transport_.error;
  auth_call call{header_.bytes(), procedure, header_.next_xid()};
  bool encoded = error.status == RPC_SUCCESS &&
                 out.put_bytes(call.header.data(), call.header.size()) && out.put_u32(procedure) &&
                 auth->marshal(out, call) && (!encode || auth->put_arguments(out, encode));
  if (!encoded) {
    rpc_err_t kept = error;
    stream_->endofrecord(true);
    if (kept.status != RPC_SUCCESS) {
      error = kept;
    } else {
      transport_.fail(RPC_CANTENCODEARGS, 0);
    }
    return false;
  }
  if (stream_->endofrecord(send_now)) return true;
  if (error.status == RPC_SUCCESS) transport_.fail(RPC_CANTSEND, 0);
  if (error.status != RPC_CANCELLED) error.status = RPC_CANTSEND;
  return false;
}

bool clnt_tcp::read_reply(rpc_reply_t &reply) {
  rpc_err_t &error = transport_.error;
  for (;;) {
    // A call that gave up waiting left the stream before a record that is still to come.
    bool skipped = stream_->at_record_start() || stream_->skiprecord(true);
    if (decoded_reply_ && stream_->skipped() != 0) {
      KS_DEBUG(1, "%lu bytes behind a decoded reply were skipped\n",
               static_cast<unsigned long>(stream_->skipped()));
    }
    decoded_reply_ = false;
    std::uint32_t xid = 0;
    if (skipped && stream_->get_u32(xid) && xid == header_.xid()) {
      transport_.begin_reply();
      reply = {};
      if (xdr_get_reply(*stream_, reply)) return true;
      transport_.withdraw_reply();
    }
    if (error.status != RPC_SUCCESS) return false;
    // A stream that cannot be brought to a record's start has no more to say.
    if (!skipped) {
      transport_.fail(RPC_CANTRECV, EBADMSG);
      return false;
    }
  }
}

bool clnt_tcp::take_results(const rpc_reply_t &reply, xdr_decoder decode) {
  rpc_err_t &error = transport_.error;
  if (!auth->validate(reply.verifier, header_.xid())) {
    set_error(RPC_AUTHERROR, AUTH_INVALIDRESP);
    return false;
  }
  if (decode && !auth->get_results(*stream_, decode)) {
    if (error.status == RPC_SUCCESS) transport_.fail(RPC_CANTDECODERES, 0);
    return false;
  }
  reply_seen_ = decoded_reply_ = true;
  return true;
}

}  // namespace qvr
