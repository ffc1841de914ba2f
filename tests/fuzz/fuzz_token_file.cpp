// The token file of a user: any bytes. They are taken whole or not at all.
#include "debug_words.h"
#include "fuzz.h"
#include "kstr_token.h"
#include "temp_dir.h"

using namespace qvr;

void fuzz(std::string_view bytes) {
  static temp_dir tokens;
  debug_set_level(-1);
  tokens.write(".qvrlogin.user", bytes);
  std::string token;
  bool sound = kstr_read_token(tokens.path(), "user", token);
  if (sound != (bytes.size() <= KSTR_TOKEN_MAX)) std::abort();
  if (token != (sound ? bytes : std::string_view())) std::abort();
}
