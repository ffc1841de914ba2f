#include "cluster_paths.h"

#include <vector>

#include "debug_words.h"
#include "ks_mutex.h"
#include "mif_env.h"

namespace qvr {

namespace {

struct owned_path_t {
  std::string path;
  std::string host;
};

// The path list and its guard.
struct path_list_t {
  KSMutex *mutex = ks_mutex_create();
  std::vector<owned_path_t> paths;  // guarded by `mutex`
};

path_list_t &path_list() {
  static path_list_t *list = [] {
    static path_list_t made;
    if (made.mutex == nullptr) KS_DEBUG(1, "Unable to create mutex for path list\n");
    return &made;
  }();
  return *list;
}

// Runs `work` under the guard of the list; false when it cannot be had.
template <class Work>
bool guarded(path_list_t &list, Work work) {
  if (ks_mutex_lock(list.mutex) != 0) {
    KS_DEBUG(1, "Unable to lock mutex for path list\n");
    return false;
  }
  work();
  if (ks_mutex_unlock(list.mutex) != 0) KS_DEBUG(1, "Unable to unlock mutex for path list\n");
  return true;
}

}  // namespace

void clus_make_path_list() {
  path_list_t &list = path_list();
  guarded(list, [&] { list.paths.clear(); });
}

std::string clus_get_hostname(std::string_view, std::string_view path) {
  std::string host;
  path_list_t &list = path_list();
  guarded(list, [&] {
    for (const owned_path_t &owned : list.paths) {
      if (path.starts_with(owned.path)) host = owned.host;
    }
  });
  if (host.empty()) host = mif_env().local_host();
  if (host.size() > CLUS_HOST_MAX) host.resize(CLUS_HOST_MAX);
  return host;
}

}  // namespace qvr
