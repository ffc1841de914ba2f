// What an auth server sends: the result union, the blob in it, and the records that go the other
// way. The first byte chooses.
#include <cstdint>
#include <cstdlib>

#include "app_identity.h"
#include "auth_identity.h"
#include "auth_unix.h"
#include "debug_words.h"
#include "kstr_auth.h"
#include "kstr_blob.h"
#include "short_writer.h"

using namespace qvr;

namespace {

// What was accepted is written and read again; both writings must agree.
template <class Value, class Get, class Put>
void there_and_back(std::string_view bytes, Get get, Put put) {
  xdr_memory_reader in(bytes);
  Value value, again;
  if (!get(in, value)) return;
  xdr_memory_writer first, second;
  if (!put(first, value)) return;
  xdr_memory_reader back(first.bytes());
  if (!get(back, again) || back.remaining() != 0 || !put(second, again)) std::abort();
  if (first.bytes() != second.bytes()) std::abort();
  if (!tells_short_streams(first.bytes().size(), [&](XDR &out) { return put(out, value); }))
    std::abort();
}

void blob(std::string_view bytes) {
  std::string text(bytes);
  bool sound = kstr_blob_decode(text, REELSCAN_PROCESS_KEY) == nullptr;
  if (kstr_blob_server(text).size() > KSTR_SERVER_NAME_MAX) std::abort();
  if (sound && text.size() < 16) std::abort();
  kstr_blob_seal(text);
  if (text.size() >= 16 && kstr_blob_check(text) != nullptr) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  debug_set_level(-1);
  std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      blob(bytes);
      break;
    case 1:
      there_and_back<kstr_result>(bytes, xdr_get_kstr_result, xdr_put_kstr_result);
      break;
    case 2:
      there_and_back<std::vector<auth_identity>>(bytes, xdr_get_identities, xdr_put_identities);
      break;
    default:
      there_and_back<auth_unix_body>(bytes, xdr_get_auth_unix, xdr_put_auth_unix);
      break;
  }
  return 0;
}
