#include "lab_dispatch.h"

#include <algorithm>

#include "auth_handle.h"
#include "lab_exchange.h"
#include "lab_gss.h"
#include "lab_state.h"

namespace qvr {

namespace {

constexpr std::uint32_t MSG_CALL = 0, MSG_REPLY = 1, RPC_VERSION = 2;
constexpr std::uint32_t MSG_ACCEPTED = 0, MSG_DENIED = 1, DENIED_RPC = 0, DENIED_AUTH = 1;

struct call_header {
  std::uint32_t xid = 0, rpc_version = 0, program = 0, version = 0, procedure = 0;
  lab_auth credential, verifier;
};

bool get_auth(XDR &in, lab_auth &auth) {
  return in.get_u32(auth.flavour) && in.get_counted(auth.body, OPAQUE_AUTH_MAX);
}

bool get_header(XDR &in, call_header &header) {
  std::uint32_t direction = 0;
  return in.get_u32(header.xid) && in.get_u32(direction) && direction == MSG_CALL &&
         in.get_u32(header.rpc_version) && in.get_u32(header.program) &&
         in.get_u32(header.version) && in.get_u32(header.procedure) &&
         get_auth(in, header.credential) && get_auth(in, header.verifier);
}

void put_denial(lab_reply &reply, std::uint32_t why_kind, std::uint32_t why) {
  reply.put_u32(MSG_DENIED);
  reply.put_u32(why_kind);
  reply.put_u32(why);
  if (why_kind == DENIED_RPC) reply.put_u32(why);  // lowest and highest version
}

void put_accepted(lab_reply &reply, const lab_auth &verifier, std::uint32_t status,
                  std::uint32_t version) {
  reply.put_u32(MSG_ACCEPTED);
  reply.put_u32(verifier.flavour);
  reply.put_counted(verifier.body);
  reply.put_u32(status);
  if (status != ACCEPT_PROG_MISMATCH) return;
  reply.put_u32(version);
  reply.put_u32(version);
}

const char *accept_text(std::uint32_t status) {
  static const char *const texts[] = {"ok",
                                      "program unavailable",
                                      "version mismatch",
                                      "procedure unavailable",
                                      "garbage arguments",
                                      "system error"};
  return status < std::size(texts) ? texts[status] : "unknown accept status";
}

const lab_procedure *find_procedure(const lab_program &program, std::uint32_t number) {
  auto at = std::find_if(program.procedures.begin(), program.procedures.end(),
                         [&](const lab_procedure &row) { return row.number == number; });
  return at == program.procedures.end() ? nullptr : &*at;
}

// Runs the procedure, unless the header already says that there is none.
std::uint32_t run_procedure(const lab_program &program, const call_header &header,
                            const lab_procedure *procedure, lab_exchange &call) {
  if (call.fault.accept) return *call.fault.accept;
  if (header.program != program.number) return ACCEPT_PROG_UNAVAIL;
  if (header.version != program.version) return ACCEPT_PROG_MISMATCH;
  if (procedure == nullptr) return ACCEPT_PROC_UNAVAIL;
  if (!procedure->run(call)) {
    call.out.clear();
    return ACCEPT_GARBAGE_ARGS;
  }
  return ACCEPT_SUCCESS;
}

// RPCSEC_GSS has contexts to judge by; it may sign what stands before its verifier.
lab_judgement judge(lab_state &lab, lab_gss *gss, const call_header &header,
                    std::string_view message, XDR &in, const lab_fault &fault) {
  if (header.credential.flavour != RPCSEC_GSS || gss == nullptr)
    return lab.credentials.judge(header.credential, fault);
  constexpr std::size_t words = 32;  // six of the header, the flavour, the length
  std::size_t size = words + (header.credential.body.size() + 3) / 4 * 4;
  gss_call call{header.xid, message.substr(0, size), header.credential, header.verifier, in};
  return gss->judge(call, fault);
}

// A call that asks for data, from where others could listen. Procedure 0 carries handshakes.
bool asks_in_clear(const lab_program &program, std::uint32_t procedure, const lab_gss *gss) {
  constexpr std::uint32_t first_auth = 120, last_auth = 125;
  bool establishes = procedure == 0 || (procedure >= first_auth && procedure <= last_auth);
  return (&program == &MMDB_PROGRAM || &program == &RAP_PROGRAM) && !establishes &&
         (gss == nullptr || !gss->encrypted());
}

void append(lab_reply &reply, const lab_reply &body) {
  // The body's own words are copied; records go on lying where they are.
  for (const auto &[bytes, shared] : body.marked_pieces()) {
    if (shared)
      reply.put_shared(bytes);
    else
      reply.put_bytes(bytes);
  }
}

}  // namespace

lab_outcome dispatch_call(lab_state &lab, const lab_program &program,
                          const fault_connection &connection, std::uint64_t number,
                          std::string_view message, lab_gss *gss, lab_reply &reply,
                          lab_fault &fault) {
  xdr_memory_reader in(message);
  call_header header;
  if (!get_header(in, header)) return lab_outcome::hang_up;
  fault = lab.faults.on_call(connection, header.procedure, header.credential.flavour);
  const lab_procedure *procedure =
      header.program == program.number ? find_procedure(program, header.procedure) : nullptr;
  lab_judgement verdict = judge(lab, gss, header, message, in, fault);
  if (fault.deny) verdict.deny = *fault.deny;
  if (asks_in_clear(program, header.procedure, gss)) lab.traffic.in_clear++;

  lab_exchange call(lab, in);
  call.program = header.program;
  call.version = header.version;
  call.procedure = header.procedure;
  call.user = verdict.user;
  call.flavour = header.credential.flavour;
  call.login_challenge = verdict.challenge;
  call.fault = fault;
  call.telling = lab.log.wanted();

  reply.put_u32(fault.wrong_xid ? header.xid + 1 : header.xid);
  reply.put_u32(MSG_REPLY);
  if (header.rpc_version != RPC_VERSION || fault.rpc_mismatch) {
    put_denial(reply, DENIED_RPC, fault.rpc_mismatch ? RPC_VERSION + 1 : RPC_VERSION);
    call.status = "RPC version mismatch";
  } else if (verdict.deny != 0) {
    put_denial(reply, DENIED_AUTH, verdict.deny);
    call.status = "denied " + std::to_string(verdict.deny);
  } else if (verdict.own) {
    put_accepted(reply, verdict.verifier, ACCEPT_SUCCESS, program.version);
    reply.put_bytes(verdict.answer);
  } else {
    std::uint32_t status = run_procedure(program, header, procedure, call);
    put_accepted(reply, verdict.verifier, status, program.version);
    if (status == ACCEPT_SUCCESS)
      append(reply, call.out);
    else
      call.status = accept_text(status);
  }

  bool silent = fault.silence || (verdict.silent && verdict.deny == AUTH_OK);
  if (call.telling) {
    lab_event event;
    event.event = "call";
    event.conn = number;
    event.daemon = program.daemon;
    event.prog = header.program;
    event.vers = header.version;
    event.proc = header.procedure;
    event.name = procedure == nullptr ? "unknown" : procedure->name;
    event.auth = verdict.kind;
    event.args = call.args.text();
    event.status = silent ? "silence" : call.status;
    event.records = call.records;
    event.bytes = reply.size();
    event.fault = fault.spec;
    lab.log.add(event);
  }
  return silent ? lab_outcome::silence : lab_outcome::reply;
}

}  // namespace qvr
