// From the bytes of a call to the bytes of its reply (RFC 5531).
#pragma once

#include <string>
#include <string_view>

#include "lab_faults.h"
#include "lab_reply.h"

namespace qvr {

struct lab_state;
struct lab_program;
class lab_gss;

enum class lab_outcome { reply, silence, hang_up };

// Answers one call message to the program. `reply` is the whole reply message, `fault` what struck
// the call. `gss` holds the contexts of the connection; null where there is none. A message that is
// no call is hung up on. Any thread.
lab_outcome dispatch_call(lab_state &lab, const lab_program &program,
                          const fault_connection &connection, std::uint64_t number,
                          std::string_view message, lab_gss *gss, lab_reply &reply,
                          lab_fault &fault);

}  // namespace qvr
