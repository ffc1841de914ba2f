#include "record_stream.h"

#include <cerrno>
#include <new>

#include "debug_words.h"

namespace qvr {

namespace {

constexpr std::uint32_t buffer_default = 4000;

std::uint8_t *align4(std::uint8_t *at) {
  return at + (-reinterpret_cast<std::uintptr_t>(at) & 3);
}

xdr_record_stream *as_record(XDR &xdr) {
  return dynamic_cast<xdr_record_stream *>(&xdr);
}

// What the two short forms have in common: one type for both directions.
xdrrec_params params_of(xdrrec_type type, void *handle, std::uint32_t send_size,
                        std::uint32_t receive_size) {
  xdrrec_params params;
  params.handle = handle;
  params.send_type = params.receive_type = type;
  params.send_size = send_size;
  params.receive_size = receive_size;
  return params;
}

}  // namespace

std::uint32_t xdrrec_buffer_size(std::uint32_t requested) {
  if (requested <= 99 || requested > 0xfffffff0) return buffer_default;
  return (requested + 3) & ~std::uint32_t{3};
}

std::unique_ptr<xdr_record_stream> xdrrec2_create(const xdrrec_params &params) {
  if (params.send_type > XDRREC_VECTORED) {
    KS_DEBUG(0, "xdrrec2_create: Invalid send buffer type\n");
    return nullptr;
  }
  if (params.receive_type > XDRREC_VECTORED) {
    KS_DEBUG(0, "xdrrec2_create: Invalid receive buffer type\n");
    return nullptr;
  }
  std::unique_ptr<xdr_record_stream> stream(new (std::nothrow) xdr_record_stream);
  std::uint32_t send_size = xdrrec_buffer_size(params.send_size);
  std::uint32_t receive_size = xdrrec_buffer_size(params.receive_size);
  if (stream) {
    stream->out_memory_.reset(new (std::nothrow) std::uint8_t[send_size + std::size_t{4}]);
    stream->in_memory_.reset(new (std::nothrow) std::uint8_t[receive_size + std::size_t{4}]);
  }
  if (!stream || !stream->out_memory_ || !stream->in_memory_) {
    errno = ENOMEM;
    return nullptr;
  }
  xdr_record_stream &s = *stream;
  s.params_ = params;
  s.params_.send_size = send_size;
  s.params_.receive_size = receive_size;
  s.inline_mask_ = 3;
  s.out_base_ = align4(s.out_memory_.get());
  s.out_boundary_ = s.out_base_ + send_size;
  s.reset_output();
  s.buffer_base_ = align4(s.in_memory_.get());
  s.in_base_ = s.in_boundary_ = s.cur_ = s.settled_ = s.frag_start_ = s.buffer_base_;
  s.open_windows();
  return stream;
}

std::unique_ptr<xdr_record_stream> xdrrec2_create_simple(
    void *handle, std::uint32_t send_size, std::uint32_t receive_size,
    decltype(xdrrec_params::simple_read) read, decltype(xdrrec_params::simple_write) write) {
  xdrrec_params params = params_of(XDRREC_SIMPLE, handle, send_size, receive_size);
  params.simple_read = read;
  params.simple_write = write;
  return xdrrec2_create(params);
}

std::unique_ptr<xdr_record_stream> xdrrec2_create_vectored(
    void *handle, std::uint32_t send_size, std::uint32_t receive_size,
    decltype(xdrrec_params::vectored_read) read, decltype(xdrrec_params::vectored_write) write) {
  xdrrec_params params = params_of(XDRREC_VECTORED, handle, send_size, receive_size);
  params.vectored_read = read;
  params.vectored_write = write;
  return xdrrec2_create(params);
}

xdr_record_stream::~xdr_record_stream() {
  drop_decrypted();
}

void xdr_record_stream::settle() {
  std::int64_t taken = cur_ - settled_, put = put_cur_ - put_settled_;
  fbtbc_ -= taken;
  if (counter_ != nullptr) *counter_ += static_cast<std::uint64_t>(taken + put);
  settled_ = cur_;
  put_settled_ = put_cur_;
}

// With a counter of the caller's the windows stay shut, so that each byte is counted when it
// passes; without one nobody can tell.
void xdr_record_stream::open_windows() {
  settled_ = cur_;
  put_settled_ = put_cur_;
  if (counter_ != nullptr) {
    end_ = cur_;
    put_end_ = put_cur_;
    return;
  }
  std::int64_t have = in_boundary_ - cur_;
  end_ = cur_ + (have < fbtbc_ ? have : fbtbc_);
  // A block from the limit of large writes on must not fit the window.
  constexpr auto most = static_cast<std::ptrdiff_t>(XDRREC_LARGE_WRITE);
  put_end_ = out_boundary_ - put_cur_ > most ? put_cur_ + most : out_boundary_;
}

std::uint64_t xdr_record_stream::remaining() const {
  if (!last_frag_) return UINT64_MAX;
  return static_cast<std::uint64_t>(fbtbc_ - (cur_ - settled_));
}

bool xdr_record_stream::inside_fragment() const {
  return in_ciphertext_ || fbtbc_ - (cur_ - settled_) > 0;
}

std::uint32_t xdr_record_stream::get_position(xdr_op op) {
  settle();
  open_windows();
  if (op == xdr_op::encode) {
    flush_mark_ = flushes_;
    return static_cast<std::uint32_t>(put_cur_ - out_base_);
  }
  fill_mark_ = fills_;
  return static_cast<std::uint32_t>(cur_ - in_base_);
}

bool xdr_record_stream::set_position(xdr_op op, std::uint32_t position) {
  settle();
  bool done = false;
  if (op == xdr_op::encode) {
    auto lowest = static_cast<std::size_t>(frag_header_ + 4 - out_base_);
    if (flush_mark_ == flushes_ && position >= lowest && position <= params_.send_size) {
      put_cur_ = out_base_ + position;
      done = true;
    }
  } else if (fill_mark_ == fills_ && in_base_ != nullptr &&
             position <= static_cast<std::size_t>(in_boundary_ - in_base_)) {
    const std::uint8_t *to = in_base_ + position;
    // Not into bytes of another fragment: between the two lies a header.
    if (to >= frag_start_ && to - cur_ <= fbtbc_) {
      fbtbc_ -= to - cur_;
      cur_ = to;
      done = true;
    }
  }
  open_windows();
  return done;
}

const std::uint8_t *xdr_record_stream::slow_inline_get(std::size_t size) {
  settle();
  const std::uint8_t *at = nullptr;
  bool ready = fbtbc_ > 0 || (!last_frag_ && next_fragment());
  if (ready && !misaligned(cur_) && size <= buffered() &&
      static_cast<std::int64_t>(size) <= fbtbc_) {
    at = cur_;
    cur_ += size;
    settle();
  }
  open_windows();
  return at;
}

std::uint8_t *xdr_record_stream::slow_inline_put(std::size_t size) {
  settle();
  std::uint8_t *at = nullptr;
  if (!misaligned(put_cur_) && size <= static_cast<std::size_t>(out_boundary_ - put_cur_)) {
    at = put_cur_;
    put_cur_ += size;
    settle();
  }
  open_windows();
  return at;
}

void xdr_record_stream::set_fragmax(std::uint32_t limit, xdrrec_fragmax_callback callback,
                                    void *argument) {
  fragmax_ = limit;
  fragmax_callback_ = callback;
  fragmax_argument_ = argument;
}

void xdr_record_stream::set_position_counter(std::uint64_t *counter) {
  settle();
  counter_ = counter;
  open_windows();
}

struct xdr_record_stream::control_row {
  bool (*run)(xdr_record_stream &stream, void *argument);
};

bool xdr_record_stream::control(unsigned command, void *argument) {
  static constexpr control_row rows[] = {
      {[](xdr_record_stream &s, void *a) {
        return s.crypt_off(static_cast<xdrrec_crypt_ops *>(a));
      }},
      {[](xdr_record_stream &s, void *a) {
        return a != nullptr && s.crypt_on(*static_cast<const xdrrec_crypt_ops *>(a));
      }},
      {[](xdr_record_stream &s, void *a) {
        if (a == nullptr) return false;
        *static_cast<std::uint32_t *>(a) = s.encrypted() ? 1 : 0;
        return true;
      }},
      {[](xdr_record_stream &s, void *a) {
        return a != nullptr && s.send_raw(static_cast<const xdrrec_raw_t *>(a));
      }},
      {[](xdr_record_stream &s, void *a) {
        return a != nullptr && s.recv_raw(static_cast<xdrrec_raw_t *>(a));
      }},
      {[](xdr_record_stream &s, void *a) {
        s.set_position_counter(static_cast<std::uint64_t *>(a));
        return true;
      }},
      {[](xdr_record_stream &s, void *) { return s.flush(); }},
  };
  return command < std::size(rows) && rows[command].run(*this, argument);
}

bool xdrrec_control(XDR &xdr, unsigned command, void *argument) {
  return xdr.control(command, argument);
}

bool xdrrec_skiprecord(XDR &xdr, bool wait) {
  auto *stream = as_record(xdr);
  return stream != nullptr && stream->skiprecord(wait);
}

bool xdrrec_endofrecord(XDR &xdr, bool send_now) {
  auto *stream = as_record(xdr);
  return stream != nullptr && stream->endofrecord(send_now);
}

void xdrrec_set_fragmax(XDR &xdr, std::uint32_t limit, xdrrec_fragmax_callback callback,
                        void *argument) {
  if (auto *stream = as_record(xdr)) stream->set_fragmax(limit, callback, argument);
}

void xdrrec_set_single_fragment(XDR &xdr, bool on) {
  if (auto *stream = as_record(xdr)) stream->set_single_fragment(on);
}

}  // namespace qvr
