// The encrypted mode of the record stream, and control messages.
#include <algorithm>
#include <cstring>
#include <utility>

#include "debug_words.h"
#include "record_stream.h"

namespace qvr {

namespace {

constexpr std::uint32_t last_fragment = 0x80000000;
constexpr std::uint32_t control_header = 0x40000000;

// More than this is not kept from one fragment to the next.
constexpr std::size_t kept_memory = 1 << 20;

// Grows as the bytes arrive, whatever length the peer claims; what it has already is used first.
template <class Read>
bool read_growing(std::vector<std::uint8_t> &memory, std::uint32_t size, Read read) {
  constexpr std::size_t first_step = 64 * 1024;
  for (std::size_t have = 0; have < size;) {
    std::size_t room = std::max({memory.size(), 2 * have, first_step});
    std::size_t part = std::min<std::size_t>(size, room) - have;
    if (memory.size() < have + part) memory.resize(have + part);
    if (!read(memory.data() + have, part)) return false;
    have += part;
  }
  return true;
}

bool failed(const errobj_t *error) {
  if (error == nullptr) return false;
  KS_DEBUG(3, "%s\n", error->text.c_str());
  return true;
}

}  // namespace

void xdr_record_stream::drop_decrypted() {
  if (decrypted_.data != nullptr) crypt_.release(crypt_.context, decrypted_);
  decrypted_ = {};
}

// Before a switch either way: what was sent so far and what was received so far belong to the old
// mode.
bool xdr_record_stream::settle_for_switch() {
  // Inside a reauthentication the stream stands between two fragments already.
  if (!in_reauth_) {
    if (head_size_ != 0 || !skiprecord(false)) return false;
    last_frag_ = true;
    at_record_start_ = false;
    settle();
  }
  if (put_cur_ == out_base_ + 4) return true;
  bool all_closed = !frag_sent_ && fragment_size() == 0;
  frag_sent_ = false;
  return all_closed ? flush_closed() : flush_out(true);
}

// Records that were ended in the buffer, without the header that waits behind them: it would be an
// empty record, which a peer that has already switched reads in the new mode.
bool xdr_record_stream::flush_closed() {
  bool done = encrypted_
                  ? crypt_send_buffered(frag_header_)
                  : send(out_base_, static_cast<std::size_t>(frag_header_ - out_base_), nullptr, 0);
  reset_output();
  flushes_++;
  return done;
}

bool xdr_record_stream::crypt_on(const xdrrec_crypt_ops &ops) {
  if (encrypted_ || ops.context == nullptr || ops.encrypt == nullptr || ops.decrypt == nullptr ||
      ops.release == nullptr) {
    return false;
  }
  bool done = settle_for_switch();
  if (done) {
    leftover_ = cur_;
    leftover_size_ = buffered();
    crypt_ = ops;
    in_base_ = in_boundary_ = cur_ = settled_ = frag_start_ = nullptr;
    fills_++;
    encrypted_ = true;
  }
  open_windows();
  return done;
}

bool xdr_record_stream::crypt_off(xdrrec_crypt_ops *old_ops) {
  if (!encrypted_) return false;
  bool done = settle_for_switch();
  if (done) {
    drop_decrypted();
    // Bytes that the encrypted mode never came to are plain again. They begin with a header, which
    // is where words are in phase.
    if (leftover_size_ != 0) std::memmove(buffer_base_, leftover_, leftover_size_);
    in_base_ = cur_ = settled_ = frag_start_ = buffer_base_;
    in_boundary_ = buffer_base_ + leftover_size_;
    leftover_size_ = 0;
    fills_++;
    if (old_ops != nullptr) *old_ops = crypt_;
    crypt_ = {};
    encrypted_ = false;
  }
  open_windows();
  return done;
}

// Exactly so many bytes, those that lie in the receive buffer first. What a read brings beyond them
// stays there: header, ciphertext and the next header mostly come in one.
bool xdr_record_stream::exact_read(std::uint8_t *to, std::size_t size) {
  std::size_t part = std::min(size, leftover_size_);
  if (part != 0) std::copy_n(leftover_, part, to);
  leftover_ += part;
  leftover_size_ -= part;
  to += part;
  size -= part;
  if (size == 0) return true;
  leftover_ = buffer_base_;
  std::size_t ahead = params_.receive_size;
  if (!fill(to, &size, buffer_base_, &ahead, 1)) return false;
  leftover_size_ = ahead;
  return true;
}

bool xdr_record_stream::decrypt_next(std::uint32_t length) {
  if (leftover_size_ >= length) {
    // The layer reads its input only.
    xdrrec_buf_t in_place{const_cast<std::uint8_t *>(leftover_), length};
    leftover_ += length;
    leftover_size_ -= length;
    return !failed(crypt_.decrypt(crypt_.context, in_place, decrypted_));
  }
  auto read = [this](std::uint8_t *to, std::size_t size) { return exact_read(to, size); };
  in_ciphertext_ = true;
  bool done = read_growing(ciphertext_, length, read);
  in_ciphertext_ = false;
  done = done && !failed(crypt_.decrypt(crypt_.context, {ciphertext_.data(), length}, decrypted_));
  if (ciphertext_.size() > kept_memory) std::vector<std::uint8_t>().swap(ciphertext_);
  return done;
}

// A fragment that has not begun is waited for again; one that did not come whole is lost.
bool xdr_record_stream::crypt_set_input_fragment() {
  std::uint32_t header;
  if (damaged_ || !read_head(header)) return false;
  damaged_ = !crypt_read_fragment(header);
  return !damaged_;
}

bool xdr_record_stream::crypt_read_fragment(std::uint32_t header) {
  if ((header & control_header) != 0 && crypt_.reauth != nullptr) {
    control_header_taken_ = in_reauth_ = true;
    errobj_t *error = crypt_.reauth(crypt_.context);
    in_reauth_ = false;
    if (failed(error)) return false;
    // The layer may have ended the encrypted mode: the rest comes in plain.
    if (!encrypted_) return set_input_fragment();
    if (!read_head(header)) return false;
  }
  std::uint32_t length = header & 0x7fffffff;
  if (!check_fragmax(length)) return false;
  last_frag_ = (header & last_fragment) != 0;
  drop_decrypted();
  in_base_ = in_boundary_ = cur_ = settled_ = frag_start_ = nullptr;
  fbtbc_ = 0;
  fills_++;
  if (length == 0) return true;

  begun_ += length;
  if (!decrypt_next(length)) {
    drop_decrypted();
    return false;
  }
  in_base_ = cur_ = settled_ = frag_start_ = decrypted_.data;
  in_boundary_ = cur_ + decrypted_.size;
  fbtbc_ = decrypted_.size;
  record_size_ += decrypted_.size;
  return true;
}

bool xdr_record_stream::crypt_send(std::uint32_t last_bit, const std::uint8_t *bytes,
                                   std::size_t size) {
  std::uint8_t word[4];
  if (size == 0) {
    store32(word, last_bit);
    return send(word, 4, nullptr, 0);
  }
  // The layer reads its input only.
  xdrrec_buf_t plain{const_cast<std::uint8_t *>(bytes), static_cast<std::uint32_t>(size)};
  xdrrec_buf_t cipher;
  errobj_t *error = crypt_.encrypt(crypt_.context, plain, cipher);
  if (error != nullptr && crypt_.refresh != nullptr) {
    KS_DEBUG(3,
             "The information that is needed to encrypt data may be expired. Attempting to refresh "
             "it\n");
    error = crypt_.refresh(crypt_.context);
    if (error == nullptr) error = crypt_.encrypt(crypt_.context, plain, cipher);
  }
  if (failed(error)) return false;
  store32(word, last_bit | cipher.size);
  bool done = send(word, 4, cipher.data, cipher.size);
  crypt_.release(crypt_.context, cipher);
  return done;
}

// Each fragment of the buffer up to `end`.
bool xdr_record_stream::crypt_send_buffered(const std::uint8_t *end) {
  bool done = true;
  if (crypt_.needs_refresh != nullptr && crypt_.needs_refresh(crypt_.context) &&
      crypt_.refresh != nullptr) {
    done = !failed(crypt_.refresh(crypt_.context));
  }
  for (const std::uint8_t *at = out_base_; done && at < end;) {
    std::uint32_t header = load32(at), length = header & 0x7fffffff;
    done = crypt_send(header & last_fragment, at + 4, length);
    at += 4 + length;
  }
  return done;
}

bool xdr_record_stream::crypt_flush(bool end_of_record, const std::uint8_t *extra,
                                    std::size_t extra_size) {
  bool with_extra = extra_size != 0;
  store32(frag_header_, static_cast<std::uint32_t>(fragment_size()) |
                            (end_of_record && !with_extra ? last_fragment : 0));
  bool done = crypt_send_buffered(put_cur_);
  if (done && with_extra) done = crypt_send(end_of_record ? last_fragment : 0, extra, extra_size);
  reset_output();
  flushes_++;
  return done;
}

bool xdr_record_stream::send_raw(const xdrrec_raw_t *entries) {
  std::uint64_t total = 0;
  for (const xdrrec_raw_t *entry = entries; entry->data != nullptr; entry++) total += entry->size;
  if (total > UINT32_MAX) return false;
  std::uint8_t head[8];
  store32(head, control_header);
  store32(head + 4, static_cast<std::uint32_t>(total));
  if (!send(head, 8, nullptr, 0)) return false;
  for (const xdrrec_raw_t *entry = entries; entry->data != nullptr;) {
    const xdrrec_raw_t &first = *entry++;
    bool pair = entry->data != nullptr;
    if (!send(first.data, first.size, pair ? entry->data : nullptr, pair ? entry->size : 0)) {
      return false;
    }
    if (pair) entry++;
  }
  return true;
}

bool xdr_record_stream::recv_raw(xdrrec_raw_t *entries) {
  settle();
  auto read = [this](std::uint8_t *to, std::size_t size) {
    return encrypted_ ? exact_read(to, size) : buffered_read(to, size);
  };
  auto receive = [&] {
    std::uint8_t word[4];
    if (!std::exchange(control_header_taken_, false) &&
        (!read(word, 4) || (load32(word) & control_header) == 0)) {
      return false;
    }
    if (!read(word, 4)) return false;
    std::uint32_t left = load32(word);
    for (xdrrec_raw_t *entry = entries; entry->size != 0; entry++) {
      if (entry->size == XDRREC_RAW_REST) {
        if (entry[1].size != 0 || (fragmax_ != 0 && left > fragmax_)) return false;
        entry->memory.clear();
        if (!read_growing(entry->memory, left, read)) return false;
        entry->data = entry->memory.data();
        entry->size = left;
        return true;
      }
      if (entry->size > left || !read(entry->data, entry->size)) return false;
      left -= entry->size;
    }
    return true;
  };
  bool done = receive();
  open_windows();
  return done;
}

}  // namespace qvr
