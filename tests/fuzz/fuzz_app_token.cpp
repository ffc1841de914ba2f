// Application tokens: what decodes encodes, and so for ever.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "gss_tokens.h"

using namespace qvr;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  xdr_memory_reader in(bytes);
  gss_app_token value, back;
  if (!xdr_get_app_token(in, value)) return 0;
  xdr_memory_writer out, again;
  if (!xdr_put_app_token(out, value)) std::abort();
  xdr_memory_reader second(out.bytes());
  if (!xdr_get_app_token(second, back) || second.remaining() != 0 ||
      !xdr_put_app_token(again, back) || again.bytes() != out.bytes()) {
    std::abort();
  }
  return 0;
}
