// Session records.
#include "fuzz_replies.h"
#include "session_record.h"

void fuzz(std::string_view bytes) {
  qvr::fuzz_round<qvr::session_record>(bytes, qvr::xdr_get_session_record,
                                       qvr::xdr_put_session_record);
}
