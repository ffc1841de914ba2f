#include "index_savesets.h"

#include <strings.h>

#include "client_identity.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

bool named_by_environment(std::string_view name) {
  const char *map = ks_getenv("QVR_INDEX_PATH_MAP");
  if (map == nullptr) return false;
  std::string_view text = map;
  auto colon = text.find(':');
  return colon != std::string_view::npos && text.substr(colon + 1) == name;
}

bool ends_in_client(std::string_view name) {
  auto slash = name.rfind('/');
  return slash != std::string_view::npos && !get_client_by_name(name.substr(slash + 1)).empty();
}

}  // namespace

bool index_savesets::is_index_saveset(std::string_view name) {
  std::string text(name);
  if (strcasecmp(text.c_str(), "bootstrap") == 0) return true;
  if (strcasestr(text.c_str(), "index") != nullptr) return true;
  {
    std::lock_guard lock(mutex_);
    if (auto at = known_.find(text); at != known_.end()) return at->second;
  }
  bool is_index = named_by_environment(name) || ends_in_client(name);
  std::lock_guard lock(mutex_);
  known_.emplace(std::move(text), is_index);
  return is_index;
}

}  // namespace qvr
