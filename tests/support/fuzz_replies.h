// What every decoder of replies owes: it answers alike however the bytes lie, and what it accepts
// comes back from the encoder as bytes that mean the same.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "piece_reader.h"
#include "xdr.h"

namespace qvr {

// `decode` reads a Value from a stream, `encode` writes it.
template <class Value, class Decode, class Encode>
void fuzz_round(const std::uint8_t *data, std::size_t size, Decode decode, Encode encode) {
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  Value whole{}, pieced{};
  xdr_memory_reader in(bytes);
  xdr_piece_reader pieces(bytes, 1 + size % 97, size % 2 != 0);
  bool good = decode(in, whole);
  if (decode(pieces, pieced) != good) std::abort();
  if (!good) return;
  xdr_memory_writer first, same;
  if (!encode(first, whole) || !encode(same, pieced)) std::abort();
  if (first.bytes().size() != same.bytes().size()) std::abort();

  Value again{};
  xdr_memory_reader back(first.bytes());
  xdr_memory_writer second;
  if (!decode(back, again) || back.remaining() != 0 || !encode(second, again)) std::abort();
  if (first.bytes() != second.bytes()) std::abort();
}

template <class Reply>
void fuzz_reply(const std::uint8_t *data, std::size_t size) {
  fuzz_round<Reply>(
      data, size, [](XDR &xdr, Reply &reply) { return xdr_get_reply(xdr, reply); },
      [](XDR &xdr, const Reply &reply) { return xdr_put_reply(xdr, reply); });
}

}  // namespace qvr
