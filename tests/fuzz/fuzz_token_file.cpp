// The token file of a user: any bytes. They are taken whole or not at all.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "debug_words.h"
#include "kstr_token.h"
#include "temp_dir.h"

using namespace qvr;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static temp_dir tokens;
  debug_set_level(-1);
  std::string_view bytes(reinterpret_cast<const char *>(data), size);
  tokens.write(".qvrlogin.user", bytes);
  std::string token;
  bool sound = kstr_read_token(tokens.path(), "user", token);
  if (sound != (size <= KSTR_TOKEN_MAX)) std::abort();
  if (token != (sound ? bytes : std::string_view())) std::abort();
  return 0;
}
