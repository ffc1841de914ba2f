// Replies of the resource database, and what it is asked.
#include "fuzz_replies.h"
#include "rap_protocol.h"

void fuzz(std::string_view input) {
  qvr::fuzz_reply<qvr::rap_ids_reply>(input);
  qvr::fuzz_reply<qvr::rap_res_reply>(input);
  qvr::fuzz_args<qvr::rap_query_args>(input);
  qvr::fuzz_args<qvr::rap_get_args>(input);
}
