#include "debug_markers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "install_paths.h"

namespace qvr {

namespace {

std::string marker_path(const std::string &directory, std::string_view name) {
  return directory + '/' + std::string(name);
}

bool exists(const std::string &path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

rpc_dirs_t resolve() {
  rpc_dirs_t dirs;
  dirs.debug = install_dir(INSTALL_DEBUG);
  dirs.checksums = install_dir(INSTALL_CHECKSUMS);
  dirs.nodelayeor = exists(marker_path(dirs.debug, "nodelayeor"));
  dirs.cntonly = exists(marker_path(dirs.debug, "cntonly"));
  return dirs;
}

rpc_dirs_t &process_dirs() {
  static rpc_dirs_t dirs = resolve();
  return dirs;
}

}  // namespace

const rpc_dirs_t &rpc_dirs() {
  return process_dirs();
}

void rpc_dirs_reset() {
  process_dirs() = resolve();
}

bool debug_marker(std::string_view name) {
  return exists(marker_path(rpc_dirs().debug, name));
}

std::optional<std::string> debug_marker_text(std::string_view name) {
  int fd = open(marker_path(rpc_dirs().debug, name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  std::string text(511, '\0');
  ssize_t size = read(fd, text.data(), text.size());
  close(fd);
  if (size < 0) return std::nullopt;
  text.resize(static_cast<std::size_t>(size));
  return text;
}

}  // namespace qvr
