// Replies with change records.
#include "fuzz_replies.h"
#include "mmdb_replies.h"

void fuzz(std::string_view input) {
  qvr::fuzz_reply<qvr::hist_reply>(input);
}
