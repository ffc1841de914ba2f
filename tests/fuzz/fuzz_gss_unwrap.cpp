// Wrapped data off the wire. The first byte says how much of the rest is signed on its way in, so
// that lengths are reached that no stranger could send.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "gss_context.h"
#include "xdr.h"

using namespace qvr;

namespace {

gss_ctx &context() {
  static gss_ctx ctx;
  if (ctx.qop == nullptr) {
    ctx.qop = qop_find(QOP_SECURE);
    ctx.session = 1;
    ctx.set_key(std::string(GSS_SECURE_KEY_SIZE, 'k'));
  }
  return ctx;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  std::string input(reinterpret_cast<const char *>(data) + 1, size - 1);
  if (data[0] % 2 == 0) {
    std::string mic;
    if (gss_get_mic(context(), context().wrap_seq(), input, mic) != nullptr) std::abort();
    input += mic + std::string("\0\0\0\24", 4);
  }
  gss_buffer plain, again;
  if (gss_unwrap(context(), input, plain) != nullptr) {
    if (plain.data) std::abort();
    return 0;
  }
  if (plain.size + 44 > input.size()) std::abort();
  gss_buffer back;
  if (gss_wrap(context(), plain.view(), again) != nullptr || again.size != input.size() ||
      gss_unwrap(context(), again.view(), back) != nullptr || back.view() != plain.view()) {
    std::abort();
  }
  return 0;
}
