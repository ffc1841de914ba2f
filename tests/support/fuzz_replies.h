// What every decoder owes: it answers alike however the bytes lie, and what it accepts
// comes back from the encoder as bytes that mean the same, or not at all.
#pragma once

#include "fuzz.h"
#include "piece_reader.h"
#include "short_writer.h"
#include "xdr.h"

namespace qvr {

// `decode` reads a Value from a stream, `encode` writes it.
template <class Value, class Decode, class Encode>
void fuzz_round(std::string_view bytes, Decode decode, Encode encode) {
  Value whole{}, pieced{};
  xdr_memory_reader in(bytes);
  xdr_piece_reader pieces(bytes, 1 + bytes.size() % 97, bytes.size() % 2 != 0);
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
  if (!tells_short_streams(first.bytes().size(), [&](XDR &out) { return encode(out, whole); }))
    std::abort();
}

template <class Reply>
void fuzz_reply(std::string_view bytes) {
  fuzz_round<Reply>(
      bytes, [](XDR &xdr, Reply &reply) { return xdr_get_reply(xdr, reply); },
      [](XDR &xdr, const Reply &reply) { return xdr_put_reply(xdr, reply); });
}

template <class Args>
void fuzz_args(std::string_view bytes) {
  fuzz_round<Args>(
      bytes, [](XDR &xdr, Args &args) { return xdr_get_args(xdr, args); },
      [](XDR &xdr, const Args &args) { return xdr_put_args(xdr, args); });
}

}  // namespace qvr
