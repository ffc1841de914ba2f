#include "storage_library.h"

#include <algorithm>
#include <vector>

namespace qvr {

namespace {

struct registry_t {
  std::mutex mutex;  // guards the list
  std::vector<std::shared_ptr<storage_library>> libraries;
};

registry_t &registry() {
  static registry_t *all = [] {
    auto *made = new registry_t;  // outlives every thread that may still look something up
    made->libraries.push_back(storage_directory_library("/"));
    return made;
  }();
  return *all;
}

}  // namespace

errobj_t *storage_library::start_once(const storage_params &params) {
  std::call_once(started_, [&] {
    const errobj_t *error =
        start(params, STORAGE_START_SIZE, STORAGE_START_LIMIT, params.max_idle_connections);
    if (error != nullptr) start_error_ = *error;
  });
  return start_error_ ? err_dup(&*start_error_) : nullptr;
}

errobj_t *storage_exists(storage_connection &connection, const std::string &path, bool &there) {
  errobj_t *error = connection.test(path);
  there = error == nullptr;
  return storage_is_missing(error) ? nullptr : error;
}

void storage_register(std::shared_ptr<storage_library> library) {
  registry_t &all = registry();
  std::lock_guard lock(all.mutex);
  all.libraries.push_back(std::move(library));
}

void storage_unregister(const storage_library *library) {
  registry_t &all = registry();
  std::lock_guard lock(all.mutex);
  std::erase_if(all.libraries, [&](const auto &each) { return each.get() == library; });
}

std::shared_ptr<storage_library> storage_find(const std::string &host) {
  std::vector<std::shared_ptr<storage_library>> libraries;
  {
    registry_t &all = registry();
    std::lock_guard lock(all.mutex);
    libraries = all.libraries;
  }
  // Asked without the lock: to tell a host may take a look-up.
  for (auto at = libraries.rbegin(); at != libraries.rend(); ++at)
    if ((*at)->serves(host)) return *at;
  return nullptr;
}

}  // namespace qvr
