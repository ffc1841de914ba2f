// The sending side of the record stream: batching, flushing, large writes.
#include <algorithm>
#include <atomic>

#include "debug_markers.h"
#include "record_stream.h"

namespace qvr {

namespace {

constexpr std::uint32_t last_fragment = 0x80000000;
std::atomic<std::uint64_t> delayed_ends{0};

}  // namespace

std::uint64_t xdrrec_delayed_ends() {
  return delayed_ends.load(std::memory_order_relaxed);
}

void xdr_record_stream::reset_output() {
  frag_header_ = out_base_;
  put_cur_ = put_settled_ = out_base_ + 4;
}

bool xdr_record_stream::send(const std::uint8_t *first, std::size_t first_size,
                             const std::uint8_t *second, std::size_t second_size) {
  if (params_.send_type == XDRREC_VECTORED) {
    auto sent = params_.vectored_write(params_.handle, first, first_size, second, second_size);
    return sent >= 0 && static_cast<std::size_t>(sent) == first_size + second_size;
  }
  auto put = [this](const std::uint8_t *bytes, std::size_t size) {
    if (size == 0) return true;
    auto sent = params_.simple_write(params_.handle, bytes, size);
    return sent >= 0 && static_cast<std::size_t>(sent) == size;
  };
  return put(first, first_size) && put(second, second_size);
}

void xdr_record_stream::close_fragment() {
  store32(frag_header_, static_cast<std::uint32_t>(fragment_size()) | last_fragment);
  frag_header_ = put_cur_;
  put_cur_ += 4;
  put_settled_ = put_cur_;
  frag_sent_ = false;
}

bool xdr_record_stream::endofrecord(bool send_now) {
  settle();
  if (single_fragment_) send_now = true;
  bool done;
  if (!send_now && frag_sent_ && !rpc_dirs().nodelayeor && fragment_size() == 0) {
    delayed_ends.fetch_add(1, std::memory_order_relaxed);
    close_fragment();
    done = true;
  } else if (!send_now && !frag_sent_ &&
             static_cast<std::size_t>(out_boundary_ - put_cur_) > params_.send_size / 16) {
    close_fragment();
    done = true;
  } else {
    frag_sent_ = false;
    done = flush_out(true);
  }
  open_windows();
  return done;
}

bool xdr_record_stream::flush() {
  settle();
  frag_sent_ = true;
  bool done = flush_out(false);
  open_windows();
  return done;
}

bool xdr_record_stream::flush_out(bool end_of_record, const std::uint8_t *extra,
                                  std::size_t extra_size) {
  return encrypted_ ? crypt_flush(end_of_record, extra, extra_size)
                    : plain_flush(end_of_record, extra, extra_size);
}

bool xdr_record_stream::plain_flush(bool end_of_record, const std::uint8_t *extra,
                                    std::size_t extra_size) {
  if (single_fragment_) {
    if (!end_of_record) return false;
    if (extra_size == 0 && put_cur_ == out_base_ + 4) return true;
  }
  auto length = static_cast<std::uint32_t>(fragment_size() + extra_size);
  store32(frag_header_, length | (end_of_record ? last_fragment : 0));
  bool done = send(out_base_, static_cast<std::size_t>(put_cur_ - out_base_), extra, extra_size);
  reset_output();
  flushes_++;
  return done;
}

bool xdr_record_stream::slow_put_u32(std::uint32_t value) {
  settle();
  bool done = true;
  // A word never lies across two fragments.
  if (out_boundary_ - put_cur_ < 4) {
    frag_sent_ = true;
    done = flush_out(false);
  }
  if (done) {
    store32(put_cur_, value);
    put_cur_ += 4;
    settle();
  }
  open_windows();
  return done;
}

bool xdr_record_stream::slow_put_bytes(const void *from, std::size_t size) {
  // What a header's 31 bits can tell.
  constexpr std::size_t largest = 0x7fff0000;
  settle();
  auto *bytes = static_cast<const std::uint8_t *>(from);
  bool done = true;
  while (done && size >= XDRREC_LARGE_WRITE) {
    std::size_t part = single_fragment_ ? size : std::min(size & ~std::size_t{3}, largest);
    if (!single_fragment_) frag_sent_ = true;
    done = part <= largest && flush_out(single_fragment_, bytes, part);
    if (done && counter_ != nullptr) *counter_ += part;
    bytes += part;
    size -= part;
  }
  while (done && size > 0) {
    std::size_t part = std::min(size, static_cast<std::size_t>(out_boundary_ - put_cur_));
    std::copy_n(bytes, part, put_cur_);
    put_cur_ += part;
    settle();
    bytes += part;
    size -= part;
    if (put_cur_ == out_boundary_) {
      frag_sent_ = true;
      done = flush_out(false);
    }
  }
  open_windows();
  return done;
}

}  // namespace qvr
