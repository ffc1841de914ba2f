// The wrappers of the system library that the rest of the house calls in its place.
#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

#include <pthread.h>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace qvr {

// Memory. Never null: an allocation that fails goes to the program's new handler, where it has one,
// and is repeated once a second until it works; a size of 0 counts as 1. Released with ks_free.
// Lengths that come from a peer or a file never reach these.
void *ks_malloc(std::size_t size);
void *ks_calloc(std::size_t count, std::size_t size);
char *ks_strdup(const char *text);
void ks_free(void *memory);

// Texts, bounded as in BSD: `size` counts the whole buffer with its NUL, the result is the length
// that was tried for. Nothing is written with a size of 0, nor appended to a buffer without an end.
std::size_t ks_strlcpy(char *to, const char *from, std::size_t size);
std::size_t ks_strlcat(char *to, const char *from, std::size_t size);
// The text of an errno value in the internal code set. It lies in a ring of the calling thread of
// 200 buffers of 3072 bytes and stays valid for the thread's next 199 calls.
const char *ks_strerror(int error);
// The same of a result of getaddrinfo(3) and its kin, in the same ring.
const char *ks_gai_strerror(int result);
// A bounded print through the format engine (format.h): `size` counts the NUL, the result is the
// length of what was written.
std::size_t ks_snprintf(char *to, std::size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Time. ks_time is time(2), but never 0x7fffffff, which stands for no end of time in records.
std::int64_t ks_time();
void ks_sleep_ms(std::uint32_t milliseconds);
char *ks_strptime(const char *text, const char *format, struct tm *out);

// Environment. A value with a byte above 127 is converted from the locale's code set to the
// internal one (UTF-8) and kept, so that equal values give one pointer. Null when unset.
const char *ks_getenv(const char *name);
// 0, or a portable number.
int ks_putenv(const char *name, const char *value);

// A control of its own for pthread_once, for records that hold one.
struct ks_once_t {
  pthread_once_t control = PTHREAD_ONCE_INIT;
};
int ks_once(ks_once_t &once, void (*function)());

// Files. Results as those of the system calls, -1 with errno and the last failure set. Paths are in
// the internal code set.
enum ks_open_flag : unsigned {
  KS_OPEN_CHECK_BOM = 1,  // when reading, a UTF-8 byte order mark at the start is passed over
  KS_OPEN_WRITE_BOM = 2,  // a new or truncated file begins with one
};
int ks_open(const char *path, int how, mode_t mode = 0, unsigned flags = 0);
int ks_creat(const char *path, mode_t mode);
int ks_stat(const char *path, struct stat *out);
int ks_lstat(const char *path, struct stat *out);
int ks_fstat(int descriptor, struct stat *out);
int ks_statvfs(const char *path, struct statvfs *out);
int ks_fstatvfs(int descriptor, struct statvfs *out);
off_t ks_lseek(int descriptor, off_t offset, int whence);
// setmntent(3); the caller ends it with endmntent.
FILE *ks_setmntent(const char *path, const char *type);

// The system's host name as gethostname(2) gives it.
int ks_gethostname(char *buffer, std::size_t size);

}  // namespace qvr
