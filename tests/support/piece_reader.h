// A stream that has its bytes in pieces.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "xdr.h"

namespace qvr {

// Decodes from memory through a window of a few bytes, as a record comes off a stream. It does not
// know how much is left unless told to.
class xdr_piece_reader final : public XDR {
 public:
  xdr_piece_reader(std::string_view bytes, std::size_t piece, bool knows_rest = false)
      : bytes_(bytes), piece_(piece), knows_rest_(knows_rest) {
    refill();
  }
  std::uint64_t remaining() const override {
    return knows_rest_ ? bytes_.size() + static_cast<std::size_t>(end_ - cur_) : SIZE_MAX;
  }

  std::uint32_t get_position(xdr_op) override { return 0; }
  bool set_position(xdr_op, std::uint32_t) override { return false; }

 protected:
  bool slow_get_bytes(void *to, std::size_t size) override {
    auto *out = static_cast<std::uint8_t *>(to);
    while (size > 0) {
      if (cur_ == end_ && !refill()) return false;
      std::size_t step = std::min(size, static_cast<std::size_t>(end_ - cur_));
      std::memcpy(out, cur_, step);
      cur_ += step;
      out += step;
      size -= step;
    }
    return true;
  }
  bool slow_put_bytes(const void *, std::size_t) override { return false; }

 private:
  bool refill() {
    std::size_t step = std::min(piece_, bytes_.size());
    cur_ = reinterpret_cast<const std::uint8_t *>(bytes_.data());
    end_ = cur_ + step;
    bytes_.remove_prefix(step);
    return step != 0;
  }

  std::string_view bytes_;
  std::size_t piece_;
  bool knows_rest_;
};

}  // namespace qvr
