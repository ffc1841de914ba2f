// The authentication service inside qvrexecd: session keys for the users of this host. A key is
// handed out by the handshake of its own flavour (lab_gss.h); what stands here is for daemons.
#include "auth_handle.h"
#include "gss_tokens.h"
#include "lab_exchange.h"
#include "lab_state.h"
#include "session_record.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

// Tags of the answers of procedures 1, 3 and 4.
constexpr std::uint32_t ANSWER_ATTRS = 0;

// The record of a session, for a caller that has proved to be the user that it belongs to.
bool session_of(lab_exchange &call) {
  std::uint64_t session = 0;
  if (!call.in.get_u64(session)) return false;
  session_record record;
  errobj_t *error = call.lab.sessions.find(session, record);
  if (error == nullptr && (call.flavour != RPCSEC_GSS || call.user != record.identity.user.user)) {
    error = err_create(0, 25007, "The session belongs to somebody else");
  }
  xdr_memory_writer out;
  out.put_bool(error == nullptr);
  if (error == nullptr) {
    xdr_put_session_record(out, record);
  } else {
    out.put_bool(true);
    xdr_put_errinfo(out, error);
    call.status = "error " + std::to_string(error->code);
  }
  call.out.put_bytes(out.bytes());
  return true;
}

// Three numbers and attributes come, attributes go back.
bool attributes_of(lab_exchange &call) {
  bool present = false;
  std::int32_t numbers[3];
  attrlist attrs;
  if (!call.in.get_bool(present)) return false;
  for (std::int32_t &number : numbers) {
    if (present && !call.in.get_i32(number)) return false;
  }
  if (present && !xdr_get_attrlist(call.in, attrs)) return false;
  call.out.put_u32(ANSWER_ATTRS);
  put_attrs(call.out, {});
  return true;
}

constexpr lab_procedure PROCEDURES[] = {
    {0, "NULL", lab_null},
    {1, "gss_attributes_1", attributes_of},
    {2, "gss_session", session_of},
    {3, "gss_attributes_3", attributes_of},
    {4, "gss_attributes_4", attributes_of},
};

}  // namespace

const lab_program GSS_PROGRAM = {"qvrexecd", 390436, 1, PROCEDURES};

}  // namespace qvr
