// Replies with save sets: lists, pages, failures of batches.
#include "fuzz_replies.h"
#include "mmdb_replies.h"

void fuzz(std::string_view input) {
  qvr::fuzz_reply<qvr::ss_reply>(input);
  qvr::fuzz_reply<qvr::ssr_reply>(input);
  qvr::fuzz_reply<qvr::ssop_reply>(input);
}
