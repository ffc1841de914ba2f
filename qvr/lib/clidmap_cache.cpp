#include "clidmap_cache.h"

#include <strings.h>

#include "ks_wrappers.h"

namespace qvr {

namespace {

int compare_keys(const void *a, const void *b) {
  return strcasecmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

ks_list_ptr make_list() {
  ks_list_hooks_t hooks;
  hooks.value_free = ks_free;
  hooks.key_free = ks_free;
  hooks.compare = compare_keys;
  return ks_list_ptr(ks_list_create(hooks, KS_LIST_OWNS, KS_LIST_NO_LOCK));
}

}  // namespace

bool clidmap_cache::find(std::string_view key, std::string &value) {
  if (list_ == nullptr) return false;
  void *found = nullptr;
  if (ks_list_find(list_.get(), std::string(key).c_str(), &found) != 0 || found == nullptr)
    return false;
  value = static_cast<const char *>(found);
  return true;
}

void clidmap_cache::store(std::string_view key, std::string_view value) {
  if (list_ == nullptr) list_ = make_list();
  if (list_ == nullptr) return;
  ks_list_replace(list_.get(), ks_strdup(std::string(key).c_str()),
                  ks_strdup(std::string(value).c_str()), CLIDMAP_CACHE_SECONDS, nullptr, nullptr);
}

}  // namespace qvr
