// The auth server: credentials for the daemons, session tickets, and the local resources.
#include <algorithm>
#include <charconv>
#include <optional>

#include "app_identity.h"
#include "auth_handle.h"
#include "lab_exchange.h"
#include "lab_state.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

// Tags of the answers.
constexpr std::uint32_t GRANTED = 0, GRANTED_WITH_ERROR = 1, REFUSED = 2, REDIRECT = 3;
constexpr std::uint32_t TEXT_MAX = 32744, GROUPS_MAX = 512, GROUP_MAX = 1024;
constexpr std::uint32_t IDENTITIES_MAX = 64;

// Who asks.
struct identity {
  std::uint32_t time = 0, expires = 0, application = 0;
  std::string domain_type, domain, machine, user;
  bool canonical = false;
  std::vector<std::string> groups;
  attrlist attrs;
};

bool get_groups(XDR &in, std::vector<std::string> &groups) {
  std::uint32_t count = 0;
  if (!in.get_u32(count) || count > GROUPS_MAX) return false;
  for (std::uint32_t i = 0; i < count; i++) {
    std::string name;
    if (!in.get_counted(name, GROUP_MAX)) return false;
    groups.push_back(std::move(name));
  }
  return true;
}

bool get_identity(XDR &in, identity &who) {
  return in.get_u32(who.time) && in.get_u32(who.expires) &&
         in.get_counted(who.domain_type, TEXT_MAX) && in.get_counted(who.domain, TEXT_MAX) &&
         in.get_bool(who.canonical) && in.get_counted(who.machine, TEXT_MAX) &&
         in.get_u32(who.application) && in.get_counted(who.user, TEXT_MAX) &&
         get_groups(in, who.groups) && xdr_get_optional_attrlist(in, who.attrs);
}

std::string tell_identity(const identity &who) {
  json_line line;
  line.add("user", who.user).add("machine", who.machine).add("application", who.application);
  line.add("domain type", who.domain_type).add("domain", who.domain);
  line.add("groups", std::uint64_t{who.groups.size()});
  line.add_raw("attributes", tell_attrs(who.attrs));
  return line.text();
}

struct target {
  std::string host;
  std::uint32_t program = 0, version = 0;
};

void put_target(lab_reply &out, const target &to) {
  out.put_counted(to.host);
  out.put_u32(to.program);
  out.put_u32(to.version);
  out.put_counted("tcp");
  out.put_bool(false);  // attributes
}

std::optional<target> told_redirect(const lab_exchange &call) {
  const std::string &text = call.fault.redirect;
  std::size_t second = text.rfind(':'), first = text.rfind(':', second - 1);
  if (text.empty() || second == std::string::npos || first == std::string::npos)
    return std::nullopt;
  target to;
  to.host = text.substr(0, first);
  std::from_chars(text.data() + first + 1, text.data() + second, to.program);
  std::from_chars(text.data() + second + 1, text.data() + text.size(), to.version);
  return to;
}

// Where a service lives; null for one that this installation does not have.
const lab_program *program_of(std::string_view service) {
  struct {
    std::string_view name;
    const lab_program *program;
  } rows[] = {{"qvrmmdbd", &MMDB_PROGRAM},
              {"qvrd", &RAP_PROGRAM},
              {"qvrexec", &EXECD_PROGRAM},
              {"qvrexecd", &EXECD_PROGRAM}};
  for (const auto &row : rows) {
    if (row.name == service) return row.program;
  }
  return nullptr;
}

void put_optional_credential(lab_exchange &call, const std::string &credential) {
  bool present = call.fault.auth != "none";
  call.out.put_bool(present);
  if (present) call.out.put_counted(credential);
}

void put_grant(lab_exchange &call, const lab_program *program, const std::string &credential) {
  bool partial = call.fault.auth == "partial";
  call.out.put_u32(partial ? GRANTED_WITH_ERROR : GRANTED);
  if (partial) put_failure(call, 22007, "the lab was told to grant this with an error");
  put_optional_credential(call, credential);
  bool has_target = program != nullptr && call.fault.auth != "notarget";
  call.out.put_bool(has_target);
  if (has_target) put_target(call.out, {call.lab.options.host, program->number, program->version});
}

void put_refusal(lab_exchange &call, std::int32_t code, std::string_view text) {
  call.out.put_u32(REFUSED);
  put_failure(call, code, text);
}

// What a fault rule says in place of an answer.
bool put_told_answer(lab_exchange &call) {
  if (auto to = told_redirect(call)) {
    call.out.put_u32(REDIRECT);
    put_target(call.out, *to);
    call.status = "redirect";
    return true;
  }
  if (!call.fault.error) return false;
  call.out.put_u32(REFUSED);
  put_told_failure(call);
  return true;
}

// A ticket for the key that a job's environment holds.
bool session_ticket(lab_exchange &call) {
  std::string key;
  if (!call.in.get_counted(key, OPAQUE_AUTH_MAX)) return false;
  if (call.telling) call.args.add("key", key);
  attrlist ticket;
  if (!key.empty()) attrlist_set(ticket, "session ticket", "lab ticket of " + key);
  put_attrs(call.out, ticket);
  return true;
}

// A token of this session for the user's own.
bool session_token(lab_exchange &call) {
  std::string token;
  if (!call.in.get_counted(token, OPAQUE_AUTH_MAX)) return false;
  if (call.telling) call.args.add("token", token);
  call.out.put_counted("lab session " + lab_hex(lab_sha1(token)));
  return true;
}

constexpr lab_procedure PROCEDURES[] = {
    {0, "NULL", lab_null},
    {10, "session_ticket", session_ticket},
    {12, "session_token", session_token},
    {101, "RAP_QUERY", rap_query},
    {102, "RAP_GET", rap_get},
    {123, "kstr_challenge", auth_challenge},
    {124, "kstr_auth", auth_request},
    {125, "kstr_reauth", auth_renewal},
};

}  // namespace

bool auth_challenge(lab_exchange &call) {
  if (put_told_answer(call)) return true;
  call.out.put_u32(call.fault.auth == "challenge1" ? 1 : 0);
  call.out.put_bytes(call.lab.credentials.new_challenge());
  return true;
}

bool auth_request(lab_exchange &call) {
  std::string service;
  bool more = false;
  if (!call.in.get_counted(service, TEXT_MAX) || !call.in.get_bool(more)) return false;
  std::vector<identity> identities;
  while (more) {
    identity &who = identities.emplace_back();
    if (identities.size() > IDENTITIES_MAX || !get_identity(call.in, who) ||
        !call.in.get_bool(more))
      return false;
  }
  if (call.telling) {
    call.args.add("service", service);
    call.args.add_raw("identities", json_array(identities, tell_identity));
  }
  if (put_told_answer(call)) return true;
  if (identities.empty()) {
    put_refusal(call, 35013, "nobody asks for the credential");
    return true;
  }
  const identity &who = identities.front();
  const lab_program *program = program_of(service);
  std::string credential =
      call.lab.credentials.issue(call.lab.options.host, who.user, who.application, call.fault.auth);
  if (credential.empty())
    put_refusal(call, 32033, "Application ID is not recognized");
  else if (program == nullptr)
    put_refusal(call, 35012, "this installation has no service '" + service + "'");
  else
    put_grant(call, program, credential);
  return true;
}

bool auth_renewal(lab_exchange &call) {
  bool present = false;
  std::string credential;
  if (!call.in.get_bool(present) || (present && !call.in.get_counted(credential, OPAQUE_AUTH_MAX)))
    return false;
  if (call.telling) call.args.add("credential", std::uint64_t{credential.size()});
  if (put_told_answer(call)) return true;
  std::string user = call.lab.credentials.user_of(credential);
  if (user.empty())
    put_refusal(call, 35013, "the credential is not one of this installation");
  else
    put_grant(call, nullptr,
              call.lab.credentials.issue(call.lab.options.host, user, REELSCAN_APPLICATION,
                                         call.fault.auth));
  return true;
}

const lab_program EXECD_PROGRAM = {"qvrexecd", 390113, 1, PROCEDURES};

}  // namespace qvr
