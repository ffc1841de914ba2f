#include "host_settings.h"

#include <charconv>
#include <cstdlib>
#include <memory>

#include "auth_methods.h"
#include "debug_words.h"
#include "hosts.h"
#include "rpc_state.h"

namespace qvr {

namespace {

constexpr const char *resource_type = "QVRLA";
constexpr const char *log_type = "QVR log";

errobj_t *missing(const char *name) {
  return err_create(86525, 31001, "Attribute '%s' in %s resource does not exist.",
                    {{MSG_ARG_FIELD, name}, {MSG_ARG_RESOURCE, resource_type}});
}

bool is_enabled(const std::string *value) {
  return value != nullptr && attr_name_equal(*value, "Enabled");
}

bool read_number(const std::string *value, long &number) {
  if (value == nullptr) return false;
  const char *end = value->data() + value->size();
  auto [stop, error] = std::from_chars(value->data(), end, number);
  return error == std::errc() && stop == end;
}

struct number_setting_t {
  const char *name;
  void (*apply)(long value);
};
constexpr number_setting_t number_settings[] = {
    {"max auth attempts", [](long value) { rap_set_auth_attempts(static_cast<int>(value)); }},
    {"positive DNS cache TTL", [](long value) { ks_dns_set_ttls(value, -1); }},
    {"negative DNS cache TTL", [](long value) { ks_dns_set_ttls(-1, value); }},
};
constexpr const char *methods_name = "auth methods";

}  // namespace

errobj_t *read_settings(resdb_t *handle, const char *type,
                        std::initializer_list<const char *> names, attrlist &attrs, bool &found) {
  attrlist query, wanted;
  attrlist_set(query, "type", type);
  for (const char *name : names) attrlist_add(wanted, name);
  reslist_t resources;
  errobj_t *error = resdb_query(handle, query, wanted, 1, resources);
  found = error == nullptr && !resources.empty();
  attrs = found ? std::move(resources.front().attrs) : attrlist();
  return error;
}

errobj_t *read_multi_subnet(resdb_t *handle) {
  attrlist attrs;
  bool found;
  errobj_t *error =
      read_settings(handle, resource_type, {"Multi-subnet state", "TCP Retry"}, attrs, found);
  if (error != nullptr || !found) return error;
  bool on = is_enabled(attrlist_first(attrs, "Multi-subnet state"));
  if (on) KS_DEBUG(5, "Successfully set the multisubnet state.\n");
  long retry = 0;
  if (read_number(attrlist_first(attrs, "TCP Retry"), retry) && retry >= 0 && retry <= INT32_MAX) {
    KS_DEBUG(5, "Successfully set the tcp retry values.\n");
  } else {
    retry = 0;
  }
  rpc_set_multi_subnet(on, static_cast<int>(retry));
  return nullptr;
}

errobj_t *read_reverse_dns(resdb_t *handle) {
  attrlist attrs;
  bool found;
  errobj_t *error = read_settings(handle, resource_type, {"reverse DNS state"}, attrs, found);
  if (error != nullptr || attrlist_find(attrs, "reverse DNS state") == nullptr) return error;
  const std::string *word = attrlist_first(attrs, "reverse DNS state");
  ks_set_rdns_state(word != nullptr ? word->c_str() : nullptr);
  return nullptr;
}

errobj_t *read_auth_settings(resdb_t *handle, bool local) {
  attrlist attrs;
  bool found;
  errobj_t *error = read_settings(
      handle, resource_type,
      {methods_name, number_settings[0].name, number_settings[1].name, number_settings[2].name},
      attrs, found);
  if (error != nullptr) return error;
  for (const number_setting_t &setting : number_settings) {
    const std::string *value = attrlist_first(attrs, setting.name);
    long number;
    if (read_number(value, number)) {
      setting.apply(number);
    } else if (value == nullptr) {
      error = missing(setting.name);
    }
  }
  const attr_t *methods = attrlist_find(attrs, methods_name);
  if (methods == nullptr) return missing(methods_name);
  std::shared_ptr<const auth_methods> parsed;
  if (errobj_t *bad = auth_methods::parse(methods->values, local, parsed)) return bad;
  set_auth_methods(std::move(parsed));
  return error;
}

errobj_t *read_connection_encrypted(resdb_t *handle, bool &on) {
  on = false;
  attrlist attrs;
  bool found;
  errobj_t *error = read_settings(handle, resource_type, {"connection encrypted"}, attrs, found);
  if (error != nullptr) return error;
  on = is_enabled(attrlist_first(attrs, "connection encrypted"));
  return nullptr;
}

errobj_t *read_rendered_log_mode(resdb_t *handle, std::uint32_t &mode) {
  attrlist attrs;
  bool found;
  errobj_t *error = read_settings(handle, log_type, {"runtime rendered log"}, attrs, found);
  long number;
  if (error == nullptr && read_number(attrlist_first(attrs, "runtime rendered log"), number) &&
      number >= 0) {
    mode = static_cast<std::uint32_t>(number);
  }
  return error;
}

}  // namespace qvr
