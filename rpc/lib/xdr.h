// XDR (RFC 4506) over a stream: one object that encodes or decodes, with a window of bytes that lie
// in memory, so that the common read or write is a compare and a copy.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace qvr {

// The decoder's own limit of a counted item.
inline constexpr std::uint32_t XDR_MAX = 0xfffffffb;

enum class xdr_op { encode, decode };

// A stream is used by one thread at a time. Every operation answers false on failure; a decoder
// that answered false leaves its output unspecified, and the call that it served has failed.
class XDR {
 public:
  virtual ~XDR() = default;

  bool get_u32(std::uint32_t &value) {
    if (end_ - cur_ >= 4) {
      value = load32(cur_);
      cur_ += 4;
      return true;
    }
    return slow_get_u32(value);
  }
  bool get_i32(std::int32_t &value) {
    std::uint32_t word;
    if (!get_u32(word)) return false;
    value = static_cast<std::int32_t>(word);
    return true;
  }
  bool get_u64(std::uint64_t &value) {
    if (end_ - cur_ >= 8) {
      value = std::uint64_t{load32(cur_)} << 32 | load32(cur_ + 4);
      cur_ += 8;
      return true;
    }
    std::uint32_t high, low;
    if (!get_u32(high) || !get_u32(low)) return false;
    value = std::uint64_t{high} << 32 | low;
    return true;
  }
  bool get_i64(std::int64_t &value) {
    std::uint64_t word;
    if (!get_u64(word)) return false;
    value = static_cast<std::int64_t>(word);
    return true;
  }
  // Any non-zero word is true.
  bool get_bool(bool &value) {
    std::uint32_t word;
    if (!get_u32(word)) return false;
    value = word != 0;
    return true;
  }
  // Raw bytes: no length, no padding.
  bool get_bytes(void *to, std::size_t size) {
    if (static_cast<std::size_t>(end_ - cur_) >= size) {
      if (size != 0) std::memcpy(to, cur_, size);
      cur_ += size;
      return true;
    }
    return slow_get_bytes(to, size);
  }

  bool put_u32(std::uint32_t value) {
    if (put_end_ - put_cur_ >= 4) {
      store32(put_cur_, value);
      put_cur_ += 4;
      return true;
    }
    return slow_put_u32(value);
  }
  bool put_i32(std::int32_t value) { return put_u32(static_cast<std::uint32_t>(value)); }
  bool put_u64(std::uint64_t value) {
    return put_u32(static_cast<std::uint32_t>(value >> 32)) &&
           put_u32(static_cast<std::uint32_t>(value));
  }
  bool put_i64(std::int64_t value) { return put_u64(static_cast<std::uint64_t>(value)); }
  bool put_bool(bool value) { return put_u32(value ? 1 : 0); }
  bool put_bytes(const void *from, std::size_t size) {
    // A block that fills the room to the last byte goes the slow way, which sends it off.
    if (static_cast<std::size_t>(put_end_ - put_cur_) > size) {
      if (size != 0) std::memcpy(put_cur_, from, size);
      put_cur_ += size;
      return true;
    }
    return slow_put_bytes(from, size);
  }

  // Counted items: length word, bytes, zero padding to a multiple of 4. `limit` is in bytes. Memory
  // is taken as the bytes arrive, never for a length that the peer only claims.
  bool put_counted(std::string_view bytes);
  bool get_counted(std::string &bytes, std::uint32_t limit = XDR_MAX);

  // The next `size` bytes where they lie, or null when they do not lie in one piece; consumed when
  // not null. Valid until the next operation.
  const std::uint8_t *inline_get(std::size_t size) {
    if (static_cast<std::size_t>(end_ - cur_) < size || misaligned(cur_)) {
      return slow_inline_get(size);
    }
    const std::uint8_t *at = cur_;
    cur_ += size;
    return at;
  }
  // Room for the next `size` bytes, which the caller fills in, or null when there is none in one
  // piece.
  std::uint8_t *inline_put(std::size_t size) {
    if (static_cast<std::size_t>(put_end_ - put_cur_) < size || misaligned(put_cur_)) {
      return slow_inline_put(size);
    }
    std::uint8_t *at = put_cur_;
    put_cur_ += size;
    return at;
  }

  // Where the next operation of that direction stands, in bytes from the base of what lies in
  // memory; and back to such a place, which fails when the bytes are not there any more.
  virtual std::uint32_t get_position(xdr_op op) = 0;
  virtual bool set_position(xdr_op op, std::uint32_t position) = 0;
  // Requests that only one kind of stream knows, by number; false for an unknown one.
  virtual bool control(unsigned request, void *argument) {
    (void)request;
    (void)argument;
    return false;
  }

  // The bytes ahead that lie in memory in one piece; not consumed.
  std::span<const std::uint8_t> window() const { return {cur_, end_}; }

  // Bytes that the stream knows to be left of the record; an upper bound for counts that a peer
  // claims. A stream that cannot know gives SIZE_MAX.
  virtual std::uint64_t remaining() const = 0;

  static std::uint32_t load32(const std::uint8_t *from) {
    std::uint32_t word;
    std::memcpy(&word, from, 4);
    return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
  }
  static void store32(std::uint8_t *to, std::uint32_t value) {
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap32(value);
    std::memcpy(to, &value, 4);
  }

 protected:
  // The decode window: bytes of the current fragment that lie in memory.
  const std::uint8_t *cur_ = nullptr;
  const std::uint8_t *end_ = nullptr;
  // The encode window: free room.
  std::uint8_t *put_cur_ = nullptr;
  std::uint8_t *put_end_ = nullptr;
  // Address bits that must be 0 where bytes are handed out in place.
  std::uintptr_t inline_mask_ = 0;

  // Reached when the window is too small: refill (or flush) and go on, or fail.
  virtual bool slow_get_bytes(void *to, std::size_t size) = 0;
  virtual bool slow_put_bytes(const void *from, std::size_t size) = 0;
  virtual bool slow_put_u32(std::uint32_t value) {
    std::uint8_t word[4];
    store32(word, value);
    return slow_put_bytes(word, 4);
  }
  virtual const std::uint8_t *slow_inline_get(std::size_t) { return nullptr; }
  virtual std::uint8_t *slow_inline_put(std::size_t) { return nullptr; }

  bool misaligned(const void *at) const {
    return (reinterpret_cast<std::uintptr_t>(at) & inline_mask_) != 0;
  }

 private:
  bool slow_get_u32(std::uint32_t &value) {
    std::uint8_t word[4];
    if (!slow_get_bytes(word, 4)) return false;
    value = load32(word);
    return true;
  }
};

// A stream that decodes from memory that it borrows.
class xdr_memory_reader final : public XDR {
 public:
  explicit xdr_memory_reader(std::string_view bytes)
      : base_(reinterpret_cast<const std::uint8_t *>(bytes.data())) {
    cur_ = base_;
    end_ = base_ + bytes.size();
  }
  std::uint64_t remaining() const override { return static_cast<std::uint64_t>(end_ - cur_); }
  std::uint32_t get_position(xdr_op) override { return static_cast<std::uint32_t>(cur_ - base_); }
  bool set_position(xdr_op op, std::uint32_t position) override {
    if (op != xdr_op::decode || position > static_cast<std::size_t>(end_ - base_)) return false;
    cur_ = base_ + position;
    return true;
  }

 protected:
  bool slow_get_bytes(void *, std::size_t) override { return false; }
  bool slow_put_bytes(const void *, std::size_t) override { return false; }

 private:
  const std::uint8_t *base_;
};

// A stream that encodes to a string that it owns and grows.
class xdr_memory_writer final : public XDR {
 public:
  std::uint64_t remaining() const override { return SIZE_MAX; }
  std::uint32_t get_position(xdr_op) override { return static_cast<std::uint32_t>(bytes_.size()); }
  // Going back drops what was written behind that place.
  bool set_position(xdr_op op, std::uint32_t position) override {
    if (op != xdr_op::encode || position > bytes_.size()) return false;
    bytes_.resize(position);
    return true;
  }
  // What has been written so far.
  const std::string &bytes() const { return bytes_; }
  std::string take() { return std::move(bytes_); }

 protected:
  bool slow_get_bytes(void *, std::size_t) override { return false; }
  bool slow_put_bytes(const void *from, std::size_t size) override {
    bytes_.append(static_cast<const char *>(from), size);
    return true;
  }

 private:
  std::string bytes_;
};

}  // namespace qvr
