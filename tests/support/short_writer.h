// A stream that takes only so many bytes.
#pragma once

#include <cstdint>

#include "xdr.h"

namespace qvr {

class xdr_short_writer final : public XDR {
 public:
  explicit xdr_short_writer(std::size_t room) : room_(room) {}
  std::uint64_t remaining() const override { return 0; }
  std::uint32_t get_position(xdr_op) override { return 0; }
  bool set_position(xdr_op, std::uint32_t) override { return false; }

 protected:
  bool slow_get_bytes(void *, std::size_t) override { return false; }
  bool slow_put_bytes(const void *, std::size_t size) override {
    bool fits = size <= room_;
    room_ = fits ? room_ - size : 0;
    return fits;
  }

 private:
  std::size_t room_;
};

// Does `encode`, which puts `size` bytes, tell every stream that does not take them all?
template <class Encode>
bool tells_short_streams(std::size_t size, Encode encode) {
  for (std::size_t room = 0; room < size; room += 1 + size / 256) {
    xdr_short_writer out(room);
    if (encode(out)) return false;
  }
  return true;
}

}  // namespace qvr
