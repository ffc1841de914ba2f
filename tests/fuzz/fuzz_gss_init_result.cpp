// Results of INIT calls: what decodes encodes, and so for ever.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "gss_wire.h"

using namespace qvr;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  xdr_memory_reader in(bytes);
  gss_init_result value, back;
  if (!xdr_get_gss_init_result(in, value)) return 0;
  xdr_memory_writer out, again;
  if (!xdr_put_gss_init_result(out, value)) std::abort();
  xdr_memory_reader second(out.bytes());
  if (!xdr_get_gss_init_result(second, back) || second.remaining() != 0 ||
      !xdr_put_gss_init_result(again, back) || again.bytes() != out.bytes()) {
    std::abort();
  }
  return 0;
}
