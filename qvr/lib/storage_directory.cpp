// A directory tree of this machine in the place of an appliance (POSIX.1-2017: openat, pread,
// readdir).
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "err_class.h"
#include "hosts.h"
#include "storage_library.h"

namespace qvr {

namespace {

constexpr int TIER_ACTIVE = 1;
constexpr std::size_t STORAGE_PATH_MAX = 4096;  // with its end

errobj_t *system_error(int number) {
  return err_from_table(ERR_SYSTEM, number);
}

// No component may climb.
bool climbs(std::string_view path) {
  while (!path.empty()) {
    std::size_t slash = path.find('/');
    if (path.substr(0, slash) == "..") return true;
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return false;
}

class fd_t {
 public:
  explicit fd_t(int fd) : fd_(fd) {}
  fd_t(fd_t &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  fd_t &operator=(fd_t &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~fd_t() { close(); }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  int close() { return fd_ < 0 ? 0 : ::close(std::exchange(fd_, -1)); }

 private:
  int fd_;
};

class tree_file final : public storage_file {
 public:
  explicit tree_file(fd_t fd) : fd_(std::move(fd)) {}

  errobj_t *read(std::int64_t offset, std::span<char> to, std::size_t &got) override {
    for (got = 0; got < to.size();) {
      ssize_t count = pread(fd_.get(), to.data() + got, to.size() - got,
                            offset + static_cast<std::int64_t>(got));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return system_error(errno);
      if (count == 0) break;
      got += static_cast<std::size_t>(count);
    }
    return nullptr;
  }
  errobj_t *write(std::int64_t offset, std::string_view bytes, std::size_t &put) override {
    for (put = 0; put < bytes.size();) {
      ssize_t count = pwrite(fd_.get(), bytes.data() + put, bytes.size() - put,
                             offset + static_cast<std::int64_t>(put));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return system_error(errno);
      put += static_cast<std::size_t>(count);
    }
    return nullptr;
  }
  errobj_t *size(std::int64_t &bytes) override {
    struct stat status;
    if (fstat(fd_.get(), &status) != 0) return system_error(errno);
    bytes = status.st_size;
    return nullptr;
  }
  errobj_t *close() override { return fd_.close() == 0 ? nullptr : system_error(errno); }

 private:
  fd_t fd_;
};

class tree_directory final : public storage_directory {
 public:
  explicit tree_directory(DIR *directory) : directory_(directory) {}
  ~tree_directory() override { closedir(directory_); }
  tree_directory(const tree_directory &) = delete;
  tree_directory &operator=(const tree_directory &) = delete;

  errobj_t *next(std::string &name, bool &end) override {
    errno = 0;
    const dirent *entry = readdir(directory_);
    end = entry == nullptr;
    if (end) return errno == 0 ? nullptr : system_error(errno);
    name = entry->d_name;
    return nullptr;
  }

 private:
  DIR *directory_;
};

class tree_connection final : public storage_connection {
 public:
  explicit tree_connection(fd_t root) : root_(std::move(root)) {}

  errobj_t *open_directory(const std::string &path,
                           std::unique_ptr<storage_directory> &directory) override {
    fd_t fd(-1);
    if (errobj_t *error = open(path, O_RDONLY | O_DIRECTORY, 0, fd)) {
      if (storage_is_missing(error)) return error;
      // It ends a walk of many: which one was it?
      return err_from_text(ERR_SYSTEM, err_number(error->code), path + ": " + error->text);
    }
    DIR *opened = fdopendir(fd.get());
    if (opened == nullptr) return system_error(errno);
    fd.release();
    directory = std::make_unique<tree_directory>(opened);
    return nullptr;
  }
  errobj_t *test(const std::string &path) override {
    struct stat status;
    return stat_of(path, status);
  }
  errobj_t *open_file(const std::string &path, unsigned flags, unsigned mode,
                      std::unique_ptr<storage_file> &file) override {
    int how = (flags & STORAGE_READ_WRITE) != 0 ? O_RDWR : O_RDONLY;
    if ((flags & STORAGE_CREATE) != 0) how |= O_CREAT;
    if ((flags & STORAGE_EXCLUSIVE) != 0) how |= O_EXCL;
    fd_t fd(-1);
    // A FIFO must not hold the opening up.
    if (errobj_t *error = open(path, how | O_NONBLOCK, mode, fd)) return error;
    struct stat status;
    if (fstat(fd.get(), &status) != 0) return system_error(errno);
    if (!S_ISREG(status.st_mode)) return system_error(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    file = std::make_unique<tree_file>(std::move(fd));
    return nullptr;
  }
  errobj_t *tier(const std::string &path, int &state) override {
    struct stat status;
    state = TIER_ACTIVE;
    return stat_of(path, status);
  }

 private:
  static errobj_t *check(const std::string &path) {
    if (path.size() >= STORAGE_PATH_MAX) return system_error(ENAMETOOLONG);
    bool cut = path.find('\0') != std::string::npos;  // the system would read it up to there
    return cut || climbs(path) ? system_error(EINVAL) : nullptr;
  }
  // Paths are looked up from the root; the empty rest is the root itself.
  static std::string below(std::string_view path) {
    while (path.starts_with('/')) path.remove_prefix(1);
    return path.empty() ? "." : std::string(path);
  }
  errobj_t *open(const std::string &path, int how, unsigned mode, fd_t &fd) {
    if (errobj_t *error = check(path)) return error;
    fd = fd_t(openat(root_.get(), below(path).c_str(), how | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY,
                     static_cast<mode_t>(mode)));
    return fd.get() < 0 ? system_error(errno) : nullptr;
  }
  errobj_t *stat_of(const std::string &path, struct stat &status) {
    if (errobj_t *error = check(path)) return error;
    if (fstatat(root_.get(), below(path).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      return system_error(errno);
    return nullptr;
  }

  fd_t root_;
};

class tree_library final : public storage_library {
 public:
  explicit tree_library(std::string root) : root_(std::move(root)) {}

  bool serves(const std::string &host) override { return ks_is_local_host(host.c_str()); }
  errobj_t *connect(const storage_params &,
                    std::unique_ptr<storage_connection> &connection) override {
    fd_t root(open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (root.get() < 0) return system_error(errno);
    connection = std::make_unique<tree_connection>(std::move(root));
    return nullptr;
  }

 protected:
  errobj_t *start(const storage_params &, std::uint32_t, std::uint32_t, int) override {
    return nullptr;
  }

 private:
  std::string root_;
};

}  // namespace

std::shared_ptr<storage_library> storage_directory_library(std::string root) {
  return std::make_shared<tree_library>(std::move(root));
}

}  // namespace qvr
