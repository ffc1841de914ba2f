// Fixed parts of XDR structures (RFC 4506), read and written as one piece of bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ksui.h"
#include "xdr.h"

namespace qvr {

// Walks bytes that are known to be there.
class word_reader {
 public:
  explicit word_reader(const std::uint8_t *at) : at_(at) {}

  std::uint32_t u32() {
    std::uint32_t value = XDR::load32(at_);
    at_ += 4;
    return value;
  }
  std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
  std::uint64_t u64() {
    std::uint64_t high = u32();
    return high << 32 | u32();
  }
  std::int64_t i64() { return static_cast<std::int64_t>(u64()); }
  void id(ksui &value) {
    std::memcpy(value.bytes.data(), at_, value.bytes.size());
    at_ += value.bytes.size();
  }

 private:
  const std::uint8_t *at_;
};

// Gathers the `Size` bytes of a fixed part.
template <std::size_t Size>
class word_writer {
 public:
  word_writer &u32(std::uint32_t value) {
    XDR::store32(bytes_.data() + used_, value);
    used_ += 4;
    return *this;
  }
  word_writer &i32(std::int32_t value) { return u32(static_cast<std::uint32_t>(value)); }
  word_writer &u64(std::uint64_t value) {
    return u32(static_cast<std::uint32_t>(value >> 32)).u32(static_cast<std::uint32_t>(value));
  }
  word_writer &i64(std::int64_t value) { return u64(static_cast<std::uint64_t>(value)); }
  word_writer &id(const ksui &value) {
    std::memcpy(bytes_.data() + used_, value.bytes.data(), value.bytes.size());
    used_ += value.bytes.size();
    return *this;
  }
  bool put(XDR &xdr) const { return xdr.put_bytes(bytes_.data(), Size); }

 private:
  std::array<std::uint8_t, Size> bytes_;
  std::size_t used_ = 0;
};

// The next `Size` bytes: where they lie when they lie in one piece, copied to `room` otherwise.
// Null when the stream ends before them.
template <std::size_t Size>
inline const std::uint8_t *take_fixed(XDR &xdr, std::array<std::uint8_t, Size> &room) {
  if (const std::uint8_t *at = xdr.inline_get(Size)) return at;
  return xdr.get_bytes(room.data(), Size) ? room.data() : nullptr;
}

}  // namespace qvr
