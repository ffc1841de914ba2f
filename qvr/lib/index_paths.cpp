// Where clients' file indexes lie, and which host serves this installation.
#include <strings.h>

#include <cstdlib>
#include <memory>
#include <mutex>

#include "cluster_paths.h"
#include "current_client.h"
#include "debug_words.h"
#include "install_paths.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

std::string real_path(const std::string &path) {
  std::unique_ptr<char, void (*)(void *)> resolved(realpath(path.c_str(), nullptr), std::free);
  return resolved != nullptr ? std::string(resolved.get()) : path;
}

// Resolved once and kept for the process.
const std::string &index_directory() {
  static const std::string directory = real_path(install_path(INSTALL_ROOT, "index"));
  return directory;
}

std::string lower(std::string_view text) {
  std::string out(text);
  for (char &c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

}  // namespace

std::string index_path_default(std::string_view client) {
  return index_directory() + '/' + lower(client);
}

std::string index_path_of(std::string_view client, bool resolve) {
  cc_load_by_name(client);
  cc_t &cc = cc_get();
  if (resolve && !cc.cc_path_final && !cc.cc_index_path.empty()) {
    cc.cc_index_path = real_path(cc.cc_index_path);
    cc.cc_path_final = true;
  }
  return cc.cc_index_path;
}

std::string index_path_client(std::string_view path) {
  if (const char *value = ks_getenv("QVR_INDEX_PATH_MAP")) {
    std::string_view map = value;
    std::size_t colon = map.find(':');
    if (colon != std::string_view::npos && map.substr(colon + 1) == path)
      return std::string(map.substr(0, colon));
  }
  std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  std::string client(path.substr(slash + 1));
  if (client.empty() || index_path_of(client, false).empty()) return {};
  return client;
}

std::string qvr_getserverhost() {
  static std::once_flag once;
  static std::string host;
  std::call_once(once, [] {
    const char *reduced = ks_getenv("NO_CLU_QUERY");
    if (reduced != nullptr && std::string_view(reduced) == "TRUE")
      KS_DEBUG(7, "Reduced cluster query.\n");
    else
      clus_make_path_list();
    host = clus_get_hostname({}, index_directory());
    KS_DEBUG(3, "qvr_getserverhost(): returning clus_get_hostname() = %s\n", host.c_str());
  });
  return host;
}

}  // namespace qvr
