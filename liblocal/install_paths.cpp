#include "install_paths.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace qvr {

namespace {

struct install_row_t {
  const char *variable;
  bool below_root;
  const char *path;
};

constexpr install_row_t install_rows[INSTALL_DIR_COUNT] = {
    {"QVR_DIR_PATH", false, "/opt/qvr"},
    {"QVR_DEBUG_DIR", false, "/qvr/debug"},
    {"QVR_CHECKSUMS_DIR", false, "/qvr/checksums"},
    {"QVR_ROOT_DEBUG_DIR", true, "/debug"},
    {"QVR_TOKENS_DIR", true, "/tokens"},
    {"QVR_TMP_DIR", true, "/tmp"},
    {"QVRCATALOGDIR", true, "/locale"},
    {"QVR_SSL_DIR", true, "/ssl"},
};

const char *variable_or_null(const char *name) {
  const char *value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

}  // namespace

std::string install_dir(install_dir_t which) {
  const install_row_t &row = install_rows[which];
  if (const char *moved = variable_or_null(row.variable)) {
    std::string path = moved;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
  }
  return row.below_root ? install_dir(INSTALL_ROOT) + row.path : row.path;
}

std::string install_catalogues() {
  std::string directory = install_dir(INSTALL_CATALOG);
  if (variable_or_null("QVRCATALOGDIR") != nullptr || access(directory.c_str(), F_OK) == 0)
    return directory;
  std::error_code none;
  std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", none);
  if (none) return directory;
  return (program.parent_path() / LOCALE_BESIDE_PROGRAMS).lexically_normal().string();
}

std::string install_path(install_dir_t which, std::string_view file) {
  std::string path = install_dir(which);
  if (path.back() != '/') path += '/';
  path += file;
  return path;
}

bool install_marker(std::string_view file) {
  return access(install_path(INSTALL_DEBUG, file).c_str(), F_OK) == 0;
}

std::string install_fault_table() {
  if (const char *moved = variable_or_null("QVR_FAULT_TABLE")) return moved;
  return install_path(INSTALL_DEBUG, "rdlr");
}

}  // namespace qvr
