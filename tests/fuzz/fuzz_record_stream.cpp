// A record stream fed by a peer that sends anything, read by a script of operations. The first byte
// says how (encrypted, buffer type, sizes), the second how many bytes of script follow; what is
// left comes off the wire.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "debug_words.h"
#include "record_fixture.h"

using namespace qvr;

namespace {

bool step(xdr_record_stream &stream, test_cipher &cipher, std::uint8_t op) {
  std::uint32_t word32 = 0, argument = op >> 4;
  std::uint64_t word64 = 0;
  std::string text;
  std::uint8_t bytes[4096];
  switch (op & 15) {
    case 0:
      return stream.get_u32(word32);
    case 1:
      return stream.get_u64(word64);
    case 2:
      return stream.get_bytes(bytes, argument * 97);
    case 3:
      if (!stream.get_counted(text)) return false;
      if (text.size() > stream.fragment_bytes_begun()) std::abort();
      return true;
    case 4:
      if (const std::uint8_t *at = stream.inline_get(argument * 4)) {
        for (std::uint32_t i = 0; i < argument * 4; i++) word32 += at[i];
      }
      return true;
    case 5:
      return stream.skiprecord((argument & 1) != 0);
    case 6:
      word32 = stream.get_position(xdr_op::decode);
      stream.set_position(xdr_op::decode, word32 + argument - 7);
      return true;
    case 7:
      return stream.crypt_on(cipher.ops());
    case 8:
      return stream.crypt_off(nullptr);
    case 9: {
      xdrrec_raw_t entries[3];
      entries[0].data = bytes;
      entries[0].size = argument;
      entries[1].size = argument != 0 ? XDRREC_RAW_REST : 0;
      return stream.recv_raw(entries);
    }
    case 10:
      stream.set_position_counter(argument != 0 ? &word64 : nullptr);
      word32 = static_cast<std::uint32_t>(stream.get_u32(word32));
      stream.set_position_counter(nullptr);
      return true;
    case 11:
      return stream.put_bytes(bytes, argument * 16) && stream.endofrecord((argument & 1) != 0);
    default:
      return stream.get_u32(word32);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size < 2) return 0;
  debug_set_level(-1);
  std::uint8_t how = data[0];
  std::size_t steps = std::min<std::size_t>(data[1], size - 2);
  memory_transport transport;
  transport.incoming.assign(reinterpret_cast<const char *>(data) + 2 + steps, size - 2 - steps);
  static constexpr std::size_t pieces[] = {SIZE_MAX, 1, 5, 64};
  static constexpr std::uint32_t sizes[] = {0, 100, 104, 65536};
  transport.pieces = {pieces[how >> 2 & 3], 3};
  auto stream = make_stream(transport, (how & 2) != 0 ? XDRREC_SIMPLE : XDRREC_VECTORED, 0,
                            sizes[how >> 4 & 3]);
  test_cipher cipher;
  cipher.stream = stream.get();
  cipher.reauth_turns_off = (how & 64) != 0;
  stream->set_fragmax(1 << 20, (how & 128) != 0 ? +[](void *, std::uint64_t) {} : nullptr, nullptr);
  if ((how & 1) != 0) stream->crypt_on(cipher.ops());
  stream->skiprecord(true);
  for (std::size_t i = 0; i < steps; i++) step(*stream, cipher, data[2 + i]);
  stream.reset();
  if (cipher.released != cipher.encrypted + cipher.decrypted) std::abort();
  return 0;
}
