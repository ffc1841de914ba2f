#include <fcntl.h>
#include <mntent.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "debug_words.h"
#include "ks_errors.h"
#include "ks_wrappers.h"
#include "text_convert.h"

namespace qvr {

namespace {

constexpr char byte_order_mark[] = "\xef\xbb\xbf";
constexpr std::size_t mark_size = sizeof byte_order_mark - 1;

template <class Result>
Result noted(Result result) {
  if (result == static_cast<Result>(-1)) ks_set_error(errno, KS_ERROR_ERRNO);
  return result;
}

// Leaves the file behind its byte order mark, or at its start.
void pass_over_mark(int descriptor) {
  char first[mark_size];
  ssize_t got = pread(descriptor, first, mark_size, 0);
  if (got != static_cast<ssize_t>(mark_size)) return;
  if (std::memcmp(first, byte_order_mark, mark_size) == 0) {
    lseek(descriptor, static_cast<off_t>(mark_size), SEEK_SET);
  }
}

bool write_mark(int descriptor) {
  struct stat about;
  if (fstat(descriptor, &about) != 0) return false;
  if (about.st_size != 0) return true;
  return write(descriptor, byte_order_mark, mark_size) == static_cast<ssize_t>(mark_size);
}

}  // namespace

int ks_open(const char *path, int how, mode_t mode, unsigned flags) {
  KS_DEBUG(10, "ks_open(): Calling open().\n");
  int descriptor = noted(open(name_to_locale(path).c_str(), how, mode));
  if (descriptor < 0) return descriptor;
  bool reads = (how & O_ACCMODE) != O_WRONLY, writes = (how & O_ACCMODE) != O_RDONLY;
  if ((flags & KS_OPEN_CHECK_BOM) != 0 && reads) pass_over_mark(descriptor);
  if ((flags & KS_OPEN_WRITE_BOM) != 0 && writes && !write_mark(descriptor)) {
    ks_set_error(errno, KS_ERROR_ERRNO);
    close(descriptor);
    errno = ks_last_error_value();
    return -1;
  }
  return descriptor;
}

int ks_creat(const char *path, mode_t mode) {
  KS_DEBUG(10, "ks_creat(): Calling creat().\n");
  return noted(creat(name_to_locale(path).c_str(), mode));
}

int ks_stat(const char *path, struct stat *out) {
  KS_DEBUG(10, "ks_stat(): Calling stat().\n");
  return noted(stat(name_to_locale(path).c_str(), out));
}

int ks_lstat(const char *path, struct stat *out) {
  KS_DEBUG(10, "ks_lstat(): Calling lstat().\n");
  return noted(lstat(name_to_locale(path).c_str(), out));
}

int ks_fstat(int descriptor, struct stat *out) {
  KS_DEBUG(10, "ks_fstat(): Calling fstat().\n");
  return noted(fstat(descriptor, out));
}

int ks_statvfs(const char *path, struct statvfs *out) {
  KS_DEBUG(10, "ks_statvfs(): Calling statvfs().\n");
  return noted(statvfs(name_to_locale(path).c_str(), out));
}

int ks_fstatvfs(int descriptor, struct statvfs *out) {
  KS_DEBUG(10, "ks_fstatvfs(): Calling fstatvfs().\n");
  return noted(fstatvfs(descriptor, out));
}

off_t ks_lseek(int descriptor, off_t offset, int whence) {
  return noted(lseek(descriptor, offset, whence));
}

FILE *ks_setmntent(const char *path, const char *type) {
  FILE *table = setmntent(name_to_locale(path).c_str(), type);
  if (table == nullptr) ks_set_error(errno, KS_ERROR_ERRNO);
  return table;
}

}  // namespace qvr
