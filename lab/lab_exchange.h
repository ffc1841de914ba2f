// One call on its way through the lab, and the tables of programs and procedures that answer it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "attrlist.h"
#include "json_line.h"
#include "ksui.h"
#include "lab_faults.h"
#include "lab_reply.h"
#include "xdr.h"

namespace qvr {

struct lab_state;

// Of accepted replies (RFC 5531).
enum lab_accept : std::uint32_t {
  ACCEPT_SUCCESS = 0,
  ACCEPT_PROG_UNAVAIL = 1,
  ACCEPT_PROG_MISMATCH = 2,
  ACCEPT_PROC_UNAVAIL = 3,
  ACCEPT_GARBAGE_ARGS = 4,
  ACCEPT_SYSTEM_ERR = 5,
};

struct lab_exchange {
  lab_exchange(lab_state &lab_, XDR &in_) : lab(lab_), in(in_) {}

  lab_state &lab;
  XDR &in;  // behind the call's header: the arguments
  std::uint32_t program = 0;
  std::uint32_t version = 0;
  std::uint32_t procedure = 0;
  std::string user;  // whom the credential names
  std::uint32_t flavour = 0;
  bool login_challenge = false;
  lab_fault fault;
  lab_reply out;  // the results

  // For the log; arguments are told only when somebody reads it.
  bool telling = false;
  json_line args;
  std::string status = "ok";
  std::uint64_t records = 0;
};

struct lab_procedure {
  std::uint32_t number;
  const char *name;
  // Decodes, tells and answers. False: the arguments do not decode.
  bool (*run)(lab_exchange &call);
};

struct lab_program {
  const char *daemon;
  std::uint32_t number;
  std::uint32_t version;
  std::span<const lab_procedure> procedures;
};

extern const lab_program PMAP_PROGRAM;
extern const lab_program EXECD_PROGRAM;
extern const lab_program GSS_PROGRAM;
extern const lab_program RAP_PROGRAM;
extern const lab_program MMDB_PROGRAM;

// Procedures that more than one program has. The empty one answers a login's call for a challenge.
bool lab_null(lab_exchange &call);
bool rap_query(lab_exchange &call);
bool rap_get(lab_exchange &call);
bool auth_challenge(lab_exchange &call);
bool auth_request(lab_exchange &call);
bool auth_renewal(lab_exchange &call);

// The error part of replies: code and plain text. Notes the failure for the log.
void put_failure(lab_exchange &call, std::int32_t code, std::string_view text);
// The same with what a fault rule says.
void put_told_failure(lab_exchange &call);
void put_attrs(lab_reply &out, const attrlist &list);

// Texts for the log.
std::string tell_id(const ksui &id);
std::string tell_attrs(const attrlist &list);

}  // namespace qvr
