// Replies of the client id map.
#include "fuzz_replies.h"
#include "mmdb_replies.h"

void fuzz(std::string_view input) {
  qvr::fuzz_reply<qvr::clidmap_reply>(input);
}
