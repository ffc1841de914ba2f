// Session records: what decodes encodes, and so for ever.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "session_record.h"

using namespace qvr;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  xdr_memory_reader in(bytes);
  session_record value, back;
  if (!xdr_get_session_record(in, value)) return 0;
  xdr_memory_writer out, again;
  if (!xdr_put_session_record(out, value)) std::abort();
  xdr_memory_reader second(out.bytes());
  if (!xdr_get_session_record(second, back) || second.remaining() != 0 ||
      !xdr_put_session_record(again, back) || again.bytes() != out.bytes()) {
    std::abort();
  }
  return 0;
}
