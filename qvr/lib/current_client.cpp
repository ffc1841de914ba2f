#include "current_client.h"

#include <strings.h>

#include <algorithm>

#include "mif_env.h"
#include "thread_key.h"

namespace qvr {

namespace {

thread_key<cc_t> cc_key("create_thread_key_cc");

std::string local_name(std::string_view name) {
  return name == "localhost" ? mif_env().local_host() : std::string(name);
}

// The handle to ask: the thread's own, or one opened for this call, which `opened` owns.
resdb_t *handle_for(cc_t &cc, resdb_ptr &opened) {
  if (cc.cc_rap != nullptr) return cc.cc_rap;
  std::string server = cc.cc_server.empty() ? qvr_getserverhost() : cc.cc_server;
  errobj_t *error = server_rap_open(server, opened);
  return error == nullptr ? opened.get() : nullptr;
}

errobj_t *query_client(resdb_t *handle, std::string_view attribute, const std::string &name,
                       reslist_t &found) {
  return resdb_query(handle, attrlist_build({{"type", {"QVR client"}}, {attribute, {name}}}),
                     attrlist_build({{"index path"}, {"name"}, {"aliases"}, {"client OS type"}}), 1,
                     found);
}

std::string first_value(const attrlist &attrs, std::string_view name) {
  const std::string *value = attrlist_first(attrs, name);
  return value != nullptr ? *value : std::string();
}

void forget(cc_t &cc) {
  cc.cc_name.clear();
  cc.cc_index_path.clear();
  cc.cc_path_final = false;
  cc.cc_os_type.clear();
  cc.cc_aliases.clear();
  cc.cc_clientid = ksui();
}

}  // namespace

cc_t &cc_get() {
  return cc_key.get();
}

void cc_set_rap(resdb_t *handle) {
  cc_t &cc = cc_get();
  cc.cc_rap_own.reset();
  cc.cc_rap = handle;
  cc.cc_rap_given = handle != nullptr;
}

void cc_set_server(std::string_view name) {
  cc_t &cc = cc_get();
  if (cc.cc_rap_given) return;
  cc.cc_rap_own.reset();
  cc.cc_rap = nullptr;
  cc.cc_server = name;
}

bool cc_is_current(std::string_view name) {
  const cc_t &cc = cc_get();
  if (cc.cc_name.empty() || name.empty()) return false;
  std::string asked = local_name(name);
  auto equal = [&](const std::string &other) {
    return strcasecmp(other.c_str(), asked.c_str()) == 0;
  };
  return equal(cc.cc_name) || std::ranges::any_of(cc.cc_aliases, equal);
}

void cc_load(std::string_view name, std::string_view attribute, const ksui &id) {
  cc_t &cc = cc_get();
  forget(cc);
  bool by_name = attribute == "name";
  std::string asked = by_name ? local_name(name) : std::string(name);
  resdb_ptr opened;
  resdb_t *handle = handle_for(cc, opened);
  if (handle == nullptr) return;
  reslist_t found;
  errobj_t *error = query_client(handle, attribute, asked, found);
  if (error == nullptr && found.empty() && by_name)
    error = query_client(handle, "aliases", asked, found);
  if (error != nullptr || found.empty()) return;

  const attrlist &attrs = found.front().attrs;
  cc.cc_name = first_value(attrs, "name");
  if (cc.cc_name.empty() && by_name) cc.cc_name = asked;
  cc.cc_index_path = first_value(attrs, "index path");
  if (cc.cc_index_path.empty()) cc.cc_index_path = index_path_default(cc.cc_name);
  cc.cc_os_type = first_value(attrs, "client OS type");
  if (const attr_t *aliases = attrlist_find(attrs, "aliases")) cc.cc_aliases = aliases->values;
  cc.cc_clientid = id;
}

void cc_load_by_name(std::string_view name, const ksui &id) {
  if (!cc_is_current(name)) cc_load(name, "name", id);
}

}  // namespace qvr
