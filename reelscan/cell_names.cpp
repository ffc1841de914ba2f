#include "cell_names.h"

#include <cstdio>

namespace qvr {

namespace {

constexpr std::string_view INDEX_MARK = "index:";
constexpr std::size_t MARK_REACH = 5;  // the mark's bytes in front of its colon

bool takes_part(std::string_view name, std::size_t colon) {
  if (colon == std::string_view::npos) return false;
  if (colon < MARK_REACH) return true;
  std::size_t from = colon - MARK_REACH;
  if (name[from] != 'i' && name[from] != '<') return false;
  return name.find(INDEX_MARK, from) != std::string_view::npos;
}

}  // namespace

bool split_client_name(std::string_view name, name_parts_t &parts) {
  std::size_t colon = name.find(':');
  if (!takes_part(name, colon)) return false;
  parts.prefix = name.substr(0, colon);
  return ksui_parse(name.substr(colon + 1), parts.client, &parts.rest) == KSUI_CLIENT;
}

std::string_view mapped_names::name_of(ss_t &ss) {
  name_parts_t parts;
  if (!split_client_name(ss.name, parts)) return ss.name;
  std::string client;
  if (errobj_t *error = namer_(parts.client, client)) {
    std::fflush(stdout);
    err_print(error);
    return ss.name;
  }
  if (client.empty()) return ss.name;
  std::string text(parts.prefix);
  text.append(":").append(client).append(parts.rest);
  ss.name = texts_.copy(text);
  return ss.name;
}

}  // namespace qvr
