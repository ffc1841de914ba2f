#include "port_settings.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "debug_words.h"
#include "host_settings.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "port_ranges.h"

namespace qvr {

namespace {

constexpr const char *resource_type = "QVR system port ranges";
constexpr std::size_t EXPORT_MAX = 6144;  // characters after which no value is begun
constexpr unsigned PORT_ID_MAX = 256;

struct range_attribute_t {
  const char *name;
  port_range_type type;
  const char *variable;
};
constexpr range_attribute_t range_attributes[] = {
    {"service ports", PORTS_SERVICE, SERVICE_PORTS_VARIABLE},
    {"connection ports", PORTS_CONNECTION, CONNECTION_PORTS_VARIABLE},
};
constexpr const char *excluded_attribute = "excluded service ports";

errobj_t *no_ranges() {
  return err_create(4200, 31001, "System does not support restricted port ranges.");
}

// Two numbers with "-" between them, or one that is both bounds.
bool read_range(const std::string &value, long &low, long &high) {
  std::size_t dash = value.find('-');
  if (dash == 0 || value.empty()) return false;
  low = high = std::atol(value.substr(0, dash).c_str());
  if (dash != std::string::npos && dash + 1 < value.size()) {
    high = std::atol(value.c_str() + dash + 1);
  }
  return low >= 0 && high <= 65535 && low <= high;
}

void add_ranges(const vallist &values, port_range_type type) {
  for (const std::string &value : values) {
    long low, high;
    if (read_range(value, low, high)) {
      port_range_add(low, high, type);
    } else {
      err_print(err_create(4201, 35017, "Invalid range of ports configured on system."));
    }
  }
}

void export_ranges(const vallist &values, const char *variable) {
  std::string text;
  for (const std::string &value : values) {
    if (text.size() > EXPORT_MAX) break;
    text += value + ",";
  }
  ks_putenv(variable, text.c_str());
}

void exclude_all(const vallist &values) {
  for (const std::string &value : values) {
    errobj_t *error = port_exclude_text(value);
    if (error == nullptr) continue;
    std::string why = error->text;
    msg_print(101203, error->code, MSG_STDERR,
              "Unable to exclude port (%s) from RPC port ranges: %s\n",
              {{MSG_ARG_TEXT, value}, {MSG_ARG_ERRTEXT, why}});
  }
}

vallist split_list(std::string_view text) {
  vallist values;
  while (!text.empty()) {
    std::size_t end = std::min(text.find(','), text.size());
    if (end != 0) values.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return values;
}

}  // namespace

errobj_t *port_exclude_text(std::string_view text) {
  constexpr std::int32_t bad_value = 54000;
  std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) {
    return err_create(101202, bad_value,
                      "The string must be in the following format, <id>:<port>.");
  }
  if (colon > PORT_ID_MAX) {
    return err_create(101200, bad_value, "Port ID cannot exceed %u characters.",
                      {{MSG_ARG_UINT, msg_arg_uint(PORT_ID_MAX)}});
  }
  std::string_view digits = text.substr(colon + 1);
  std::uint16_t port = 0;
  auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (error != std::errc() || end != digits.data() + digits.size()) {
    return err_create(101201, bad_value, "Port number is not valid.");
  }
  port_exclude(port);
  return nullptr;
}

errobj_t *port_settings_read(resdb_t *handle) {
  attrlist attrs;
  bool found;  // without the resource there are no attributes either
  errobj_t *error = read_settings(
      handle, resource_type,
      {range_attributes[0].name, range_attributes[1].name, excluded_attribute}, attrs, found);
  if (error != nullptr) return error;
  bool told = false;
  for (const range_attribute_t &row : range_attributes) {
    const attr_t *attr = attrlist_find(attrs, row.name);
    if (attr == nullptr) {
      // A notice: ports are then as the system gives them.
      if (!std::exchange(told, true)) err_print(no_ranges());
      continue;
    }
    if (row.type == PORTS_SERVICE) port_ranges_reset();
    add_ranges(attr->values, row.type);
    export_ranges(attr->values, row.variable);
  }
  if (const attr_t *attr = attrlist_find(attrs, excluded_attribute)) exclude_all(attr->values);
  return nullptr;
}

errobj_t *qvrports_init_from_env(const char *service, const char *connection) {
  KS_DEBUG(1, "qvrports_init_from_env('%s', '%s')\n", service != nullptr ? service : "",
           connection != nullptr ? connection : "");
  if (service == nullptr || *service == '\0' || connection == nullptr || *connection == '\0') {
    return no_ranges();
  }
  port_ranges_reset();
  add_ranges(split_list(service), PORTS_SERVICE);
  add_ranges(split_list(connection), PORTS_CONNECTION);
  return nullptr;
}

}  // namespace qvr
