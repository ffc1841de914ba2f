// A reply under construction: words of its own between stretches of records that lie encoded in the
// catalogue and go out from where they lie.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "xdr.h"

namespace qvr {

class lab_reply {
 public:
  void put_u32(std::uint32_t value) {
    std::uint8_t word[4];
    XDR::store32(word, value);
    put_bytes({reinterpret_cast<const char *>(word), 4});
  }
  void put_i32(std::int32_t value) { put_u32(static_cast<std::uint32_t>(value)); }
  void put_u64(std::uint64_t value) {
    put_u32(static_cast<std::uint32_t>(value >> 32));
    put_u32(static_cast<std::uint32_t>(value));
  }
  void put_bool(bool value) { put_u32(value ? 1 : 0); }
  void put_counted(std::string_view bytes) {
    put_u32(static_cast<std::uint32_t>(bytes.size()));
    put_bytes(bytes);
    put_bytes(std::string_view("\0\0\0", -bytes.size() & 3));
  }
  // Copies.
  void put_bytes(std::string_view bytes) {
    if (bytes.empty()) return;
    if (pieces_.empty() || pieces_.back().shared != nullptr)
      pieces_.push_back({nullptr, own_.size(), 0});
    own_.append(bytes);
    pieces_.back().size += bytes.size();
  }
  // Borrows: the bytes must live until the reply is sent. Stretches that adjoin become one.
  void put_shared(std::string_view bytes) {
    if (bytes.empty()) return;
    if (!pieces_.empty() && pieces_.back().shared != nullptr &&
        pieces_.back().shared + pieces_.back().size == bytes.data())
      pieces_.back().size += bytes.size();
    else
      pieces_.push_back({bytes.data(), 0, bytes.size()});
  }

  std::size_t size() const {
    std::size_t sum = 0;
    for (const piece_t &piece : pieces_) sum += piece.size;
    return sum;
  }
  // The pieces in order; valid until the next put.
  std::vector<std::string_view> pieces() const {
    std::vector<std::string_view> list;
    list.reserve(pieces_.size());
    for (const piece_t &piece : pieces_)
      list.emplace_back(piece.shared != nullptr ? piece.shared : own_.data() + piece.at,
                        piece.size);
    return list;
  }
  struct marked_piece {
    std::string_view bytes;
    bool shared;
  };
  // The same with what may go on being borrowed.
  std::vector<marked_piece> marked_pieces() const {
    std::vector<marked_piece> list;
    list.reserve(pieces_.size());
    for (const piece_t &piece : pieces_)
      list.push_back({{piece.shared != nullptr ? piece.shared : own_.data() + piece.at, piece.size},
                      piece.shared != nullptr});
    return list;
  }
  // The whole reply in one piece.
  std::string flat() const {
    std::string bytes;
    bytes.reserve(size());
    for (std::string_view piece : pieces()) bytes += piece;
    return bytes;
  }
  void clear() {
    own_.clear();
    pieces_.clear();
  }

 private:
  struct piece_t {
    const char *shared;  // null: the bytes lie in own_ from `at` on
    std::size_t at;
    std::size_t size;
  };
  std::string own_;
  std::vector<piece_t> pieces_;
};

}  // namespace qvr
