// The receiving side of the record stream: filling, fragment headers, scatter reads, skipping.
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "debug_markers.h"
#include "debug_words.h"
#include "record_stream.h"

namespace qvr {

namespace {

std::atomic<bool> enforce_fragmax{true};

}  // namespace

void xdrrec_enforce_fragmax(bool on) {
  enforce_fragmax.store(on, std::memory_order_relaxed);
}

bool xdr_record_stream::internal_fill_input_bufs(std::uint8_t *first, std::size_t *first_size,
                                                 std::uint8_t *second, std::size_t *second_size,
                                                 int full) {
  if (first_size == nullptr || (second != nullptr && second_size == nullptr)) {
    KS_UNEXPECTED("Buffer length is zero in internal_fill_input_bufs function");
    return false;
  }
  auto fill_one = [this](std::uint8_t *to, std::size_t *size, bool whole) {
    std::size_t have = 0;
    do {
      auto got = params_.simple_read(params_.handle, to + have, *size - have);
      if (got <= 0) {
        *size = have;
        return false;
      }
      have += std::min(static_cast<std::size_t>(got), *size - have);
    } while (whole && have < *size);
    *size = have;
    return true;
  };
  if (!fill_one(first, first_size, full >= 1)) {
    if (second_size != nullptr) *second_size = 0;
    return false;
  }
  if (second == nullptr) return true;
  // One more read could wait for bytes that nobody asked for.
  if (full >= 2) return fill_one(second, second_size, true);
  *second_size = 0;
  return true;
}

bool xdr_record_stream::internal2_fill_input_bufs(std::uint8_t *first, std::size_t *first_size,
                                                  std::uint8_t *second, std::size_t *second_size,
                                                  int full) {
  if (first_size == nullptr || (second != nullptr && second_size == nullptr)) {
    KS_UNEXPECTED("Buffer length is zero in internal2_fill_input_bufs function");
    return false;
  }
  std::size_t size1 = *first_size, size2 = second != nullptr ? *second_size : 0;
  std::size_t have1 = 0, have2 = 0;
  bool done = true;
  do {
    auto got = params_.vectored_read(params_.handle, first + have1, size1 - have1,
                                     size2 > have2 ? second + have2 : nullptr, size2 - have2);
    done = got > 0;
    if (!done) break;
    std::size_t count = std::min(static_cast<std::size_t>(got), size1 - have1 + size2 - have2);
    std::size_t part = std::min(count, size1 - have1);
    have1 += part;
    have2 += count - part;
  } while ((full >= 1 && have1 < size1) || (full >= 2 && have2 < size2));
  *first_size = have1;
  if (second != nullptr) *second_size = have2;
  return done;
}

// Whatever the result, the sizes say what came.
bool xdr_record_stream::fill(std::uint8_t *first, std::size_t *first_size, std::uint8_t *second,
                             std::size_t *second_size, int full) {
  return params_.receive_type == XDRREC_VECTORED
             ? internal2_fill_input_bufs(first, first_size, second, second_size, full)
             : internal_fill_input_bufs(first, first_size, second, second_size, full);
}

// The new input keeps the phase of the old: a word that is aligned in the stream is aligned here.
bool xdr_record_stream::refill(std::size_t at_most) {
  if (encrypted_) {
    KS_DEBUG(0,
             "Attempted to fill the input buffers without calling crypt_set_input_fragment when "
             "encryption was turned on");
    return false;
  }
  std::size_t phase = reinterpret_cast<std::uintptr_t>(in_boundary_) & 3;
  std::uint8_t *to = buffer_base_ + phase;
  std::size_t size = std::min(params_.receive_size - phase, at_most);
  cur_ = settled_ = in_boundary_ = frag_start_ = to;
  in_base_ = buffer_base_;
  fills_++;
  bool done = fill(to, &size, nullptr, nullptr, at_most == SIZE_MAX ? 0 : 1);
  in_boundary_ = to + size;
  return done;
}

// Exactly `size` bytes into the caller's memory, and what comes with them into the empty buffer. On
// failure `size` says how many came.
bool xdr_record_stream::read_direct(std::uint8_t *to, std::size_t &size) {
  auto before = reinterpret_cast<std::uintptr_t>(in_boundary_);
  std::size_t phase = (before + size) & 3;
  std::uint8_t *rest = buffer_base_ + phase;
  std::size_t rest_size = params_.receive_size - phase;
  bool done = fill(to, &size, rest, &rest_size, 1);
  if (!done) rest = buffer_base_ + ((before + size) & 3);
  cur_ = settled_ = frag_start_ = rest;
  in_boundary_ = rest + rest_size;
  in_base_ = buffer_base_;
  fills_++;
  return done;
}

// Bytes that are no part of a fragment: headers and plain control messages.
bool xdr_record_stream::buffered_read(std::uint8_t *to, std::size_t size) {
  while (size > 0) {
    if (buffered() == 0 && !refill()) return false;
    std::size_t part = std::min(size, buffered());
    std::copy_n(cur_, part, to);
    cur_ += part;
    settled_ = cur_;
    to += part;
    size -= part;
  }
  return true;
}

bool xdr_record_stream::check_fragmax(std::uint32_t length) {
  if (!enforce_fragmax.load(std::memory_order_relaxed) || fragmax_ == 0 || length <= fragmax_) {
    return true;
  }
  if (fragmax_callback_ != nullptr && !debug_marker("noabortconn")) {
    fragmax_callback_(fragmax_argument_, length);
    return false;
  }
  auto pid = static_cast<unsigned>(getpid());
  if (encrypted_) {
    KS_DEBUG(0, "pid %u got record frag of %ld bytes\n", pid, static_cast<long>(length));
  } else {
    KS_DEBUG(0, "pid %u got record frag of %lu bytes\n", pid, static_cast<unsigned long>(length));
  }
  return true;
}

bool xdr_record_stream::begin_fragment(std::uint32_t header) {
  std::uint32_t length = header & 0x7fffffff;
  if (!check_fragmax(length)) return false;
  last_frag_ = (header & 0x80000000) != 0;
  fbtbc_ = length;
  begun_ += length;
  frag_start_ = cur_;
  return true;
}

// A header may come in pieces, with a wait between them that somebody gave up.
bool xdr_record_stream::read_head(std::uint32_t &header) {
  for (; head_size_ < sizeof head_; head_size_++) {
    std::uint8_t *to = head_ + head_size_;
    if (!(encrypted_ ? exact_read(to, 1) : buffered_read(to, 1))) return false;
  }
  head_size_ = 0;
  at_record_start_ = false;
  header = load32(head_);
  return true;
}

bool xdr_record_stream::set_input_fragment() {
  std::uint32_t header;
  return read_head(header) && begin_fragment(header);
}

bool xdr_record_stream::slow_get_bytes(void *to, std::size_t size) {
  settle();
  auto *bytes = static_cast<std::uint8_t *>(to);
  bool done = true;
  while (done && size > 0) {
    if (fbtbc_ == 0) {
      done = !last_frag_ && next_fragment();
      continue;
    }
    auto want =
        static_cast<std::size_t>(std::min<std::uint64_t>(size, static_cast<std::uint64_t>(fbtbc_)));
    if (buffered() == 0 && size > XDRREC_DIRECT_READ && !encrypted_) {
      done = read_direct(bytes, want);
      fbtbc_ -= static_cast<std::int64_t>(want);
      if (counter_ != nullptr) *counter_ += want;
    } else {
      if (buffered() == 0) done = refill();
      want = std::min(want, buffered());
      std::copy_n(cur_, want, bytes);
      cur_ += want;
      settle();
    }
    bytes += want;
    size -= want;
  }
  open_windows();
  return done;
}

bool xdr_record_stream::skip_fragment(bool wait) {
  while (fbtbc_ > 0) {
    auto size = static_cast<std::uint64_t>(fbtbc_);
    if (buffered() == 0) {
      std::size_t most =
          wait ? SIZE_MAX
               : static_cast<std::size_t>(std::min<std::uint64_t>(size, params_.receive_size - 3));
      if (!refill(most) && buffered() == 0) return false;
    }
    auto part = std::min<std::uint64_t>(size, buffered());
    cur_ += part;
    settled_ = cur_;
    fbtbc_ -= static_cast<std::int64_t>(part);
    skipped_ += part;
  }
  return true;
}

bool xdr_record_stream::skiprecord(bool wait) {
  settle();
  skipped_ = 0;
  bool done = !damaged_;
  while (done && (fbtbc_ > 0 || !last_frag_)) {
    done = skip_fragment(wait);
    if (done && !last_frag_) done = next_fragment();
  }
  // A decrypted fragment begins aligned wherever it stood in its record, so that there the length
  // of the record decides.
  if (done && (encrypted_ ? record_size_ % 4 != 0 : misaligned(cur_))) {
    KS_DEBUG(0, "xdrrec_skiprecord unaligned input pointer\n");
    record_size_ = 0;
    done = false;
  }
  if (done) {
    last_frag_ = false;
    at_record_start_ = true;
    record_size_ = 0;
  }
  open_windows();
  return done;
}

}  // namespace qvr
