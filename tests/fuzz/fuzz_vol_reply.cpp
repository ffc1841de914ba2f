// Replies with volumes and ids.
#include "fuzz_replies.h"
#include "mmdb_replies.h"

void fuzz(std::string_view input) {
  qvr::fuzz_reply<qvr::vol_reply>(input);
  qvr::fuzz_reply<qvr::volr_reply>(input);
  qvr::fuzz_reply<qvr::volops_reply>(input);
  qvr::fuzz_reply<qvr::ids_reply>(input);
}
