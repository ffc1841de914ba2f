// The identity that goes with a request for a credential.
#include <clocale>

#include "debug_words.h"
#include "kstr_state.h"
#include "progname.h"

namespace qvr {

namespace {

constexpr std::uint32_t root = 0;

void add_session(attrlist &attributes, std::string_view service, std::string_view for_server) {
  attrlist tickets;
  {
    kstr_process_t &process = kstr_process();
    std::lock_guard lock(process.mutex);
    tickets = process.session_tickets;
  }
  std::string token = kstr_token();
  if (!tickets.empty() && (service != "qvrjobd" || for_server.empty())) {
    attrlist_merge(attributes, tickets);
  } else if (!token.empty() && tickets.empty()) {
    attrlist_set(attributes, "auth security token", token);
  } else {
    KS_DEBUG(3,
             "build_kstrauth_parms: Not adding session ticket or serialized token to_service=%s, "
             "for_server = %s\n",
             std::string(service).c_str(), std::string(for_server).c_str());
  }
}

}  // namespace

auth_identity build_kstrauth_parms(std::string_view service, std::string_view for_server,
                                   const attrlist &parameters, std::uint32_t application,
                                   bool overridden, const identity_source *given) {
  const identity_source &source = given != nullptr ? *given : system_identity();
  const kstr_thread_t &thread = kstr_thread();
  auth_identity id;
  id.time = id.exptime = static_cast<std::uint32_t>(get_kstr_clock().now());
  const std::string *authority = attrlist_first(thread.ldap, "principal authority");
  id.domaintype = authority != nullptr ? "ldap" : "nis";
  id.domain = authority != nullptr ? *authority : source.nis_domain();
  id.machname = source.host_name();
  id.application = application;
  std::uint32_t uid = source.effective_uid();
  id.user = thread.user.empty() ? source.user_name(uid) : thread.user;
  if (id.user.empty()) id.user = "nobody";
  id.groups = given != nullptr ? identity_groups(source) : identity_groups();

  attrlist &attributes = id.attributes;
  attrlist_merge(attributes, thread.ldap);
  attrlist_merge(attributes, parameters);
  char program[256];
  attrlist_set(attributes, "client program", ks_get_progname(program, sizeof program));
  attrlist_set(attributes, "hostname", id.machname);
  if (const char *locale = std::setlocale(LC_ALL, nullptr)) {
    attrlist_set(attributes, "locale", locale);
  }
  if (overridden) {
    attrlist_set(attributes, "LocalOS_Admin", "No");
  } else if (uid == root) {
    attrlist_set(attributes, "LocalOS_Admin", "Yes");
  }
  add_session(attributes, service, for_server);
  return id;
}

}  // namespace qvr
