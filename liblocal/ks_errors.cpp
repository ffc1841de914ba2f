#include "ks_errors.h"

#include <netdb.h>

#include <cerrno>

namespace qvr {

namespace {

struct number_row_t {
  ks_error_kind kind;
  int value;
  int portable;
};

// The numbers follow the alphabet of the names; resolver values have a hundred of their own.
constexpr number_row_t numbers[] = {
    {KS_ERROR_ERRNO, EACCES, 3},
    {KS_ERROR_ERRNO, EADDRINUSE, 4},
    {KS_ERROR_ERRNO, EADDRNOTAVAIL, 5},
    {KS_ERROR_ERRNO, EAFNOSUPPORT, 6},
    {KS_ERROR_ERRNO, EAGAIN, 7},
    {KS_ERROR_ERRNO, EALREADY, 8},
    {KS_ERROR_ERRNO, EBADF, 9},
    {KS_ERROR_ERRNO, EBADMSG, 10},
    {KS_ERROR_ERRNO, E2BIG, 11},
    {KS_ERROR_ERRNO, EBUSY, KS_EBUSY},
    {KS_ERROR_ERRNO, ECANCELED, 13},
    {KS_ERROR_ERRNO, ECHILD, 14},
    {KS_ERROR_ERRNO, ECONNABORTED, 15},
    {KS_ERROR_ERRNO, ECONNREFUSED, 16},
    {KS_ERROR_ERRNO, ECONNRESET, 17},
    {KS_ERROR_ERRNO, EDEADLK, KS_EDEADLK},
    {KS_ERROR_ERRNO, EDESTADDRREQ, 19},
    {KS_ERROR_ERRNO, EDOM, 20},
    {KS_ERROR_ERRNO, EDQUOT, 21},
    {KS_ERROR_ERRNO, EEXIST, KS_EEXIST},
    {KS_ERROR_ERRNO, EFAULT, 23},
    {KS_ERROR_ERRNO, EFBIG, 24},
    {KS_ERROR_ERRNO, EHOSTDOWN, 25},
    {KS_ERROR_ERRNO, EHOSTUNREACH, 26},
    {KS_ERROR_ERRNO, EIDRM, 27},
    {KS_ERROR_ERRNO, EILSEQ, 28},
    {KS_ERROR_ERRNO, EINPROGRESS, 29},
    {KS_ERROR_ERRNO, EINTR, 30},
    {KS_ERROR_ERRNO, EINVAL, KS_EINVAL},
    {KS_ERROR_ERRNO, EIO, 32},
    {KS_ERROR_ERRNO, EISCONN, 33},
    {KS_ERROR_ERRNO, EISDIR, 34},
    {KS_ERROR_ERRNO, ELOOP, 35},
    {KS_ERROR_ERRNO, EMFILE, 36},
    {KS_ERROR_ERRNO, EMLINK, 37},
    {KS_ERROR_ERRNO, EMSGSIZE, 38},
    {KS_ERROR_ERRNO, EMULTIHOP, 39},
    {KS_ERROR_ERRNO, ENAMETOOLONG, 40},
    {KS_ERROR_ERRNO, ENETDOWN, 41},
    {KS_ERROR_ERRNO, ENETRESET, 42},
    {KS_ERROR_ERRNO, ENETUNREACH, 43},
    {KS_ERROR_ERRNO, ENFILE, 44},
    {KS_ERROR_ERRNO, ENOBUFS, 46},
    {KS_ERROR_ERRNO, ENODATA, 47},
    {KS_ERROR_ERRNO, ENODEV, 48},
    {KS_ERROR_ERRNO, ENOENT, KS_ENOENT},
    {KS_ERROR_ERRNO, ENOEXEC, 50},
    {KS_ERROR_ERRNO, ENOLCK, 51},
    {KS_ERROR_ERRNO, ENOLINK, 52},
    {KS_ERROR_ERRNO, ENOMEM, KS_ENOMEM},
    {KS_ERROR_ERRNO, ENOMSG, 54},
    {KS_ERROR_ERRNO, ENOPROTOOPT, 55},
    {KS_ERROR_ERRNO, ENOSPC, 56},
    {KS_ERROR_ERRNO, ENOSYS, 57},
    {KS_ERROR_ERRNO, ENOTBLK, 58},
    {KS_ERROR_ERRNO, ENOTCONN, 59},
    {KS_ERROR_ERRNO, ENOTDIR, 60},
    {KS_ERROR_ERRNO, ENOTEMPTY, 61},
    {KS_ERROR_ERRNO, ENOTSOCK, 62},
    {KS_ERROR_ERRNO, ENOTSUP, 63},
    {KS_ERROR_ERRNO, ENOTTY, 64},
    {KS_ERROR_ERRNO, ENXIO, 65},
    {KS_ERROR_ERRNO, EOVERFLOW, 66},
    {KS_ERROR_ERRNO, EPERM, 67},
    {KS_ERROR_ERRNO, EPFNOSUPPORT, 68},
    {KS_ERROR_ERRNO, EPIPE, 69},
    {KS_ERROR_ERRNO, EPROTO, 70},
    {KS_ERROR_ERRNO, EPROTONOSUPPORT, 71},
    {KS_ERROR_ERRNO, EPROTOTYPE, 72},
    {KS_ERROR_ERRNO, ERANGE, KS_ERANGE},
    {KS_ERROR_ERRNO, EROFS, 75},
    {KS_ERROR_ERRNO, ESHUTDOWN, 76},
    {KS_ERROR_ERRNO, ESPIPE, 77},
    {KS_ERROR_ERRNO, ESRCH, KS_ESRCH},
    {KS_ERROR_ERRNO, ESTALE, 79},
    {KS_ERROR_ERRNO, ETIME, KS_ETIME},
    {KS_ERROR_ERRNO, ETIMEDOUT, KS_ETIMEDOUT},
    {KS_ERROR_ERRNO, ETXTBSY, 82},
    {KS_ERROR_ERRNO, EUSERS, 83},
    {KS_ERROR_ERRNO, EXDEV, 84},
    {KS_ERROR_RESOLVER, EAI_AGAIN, 100},
    {KS_ERROR_RESOLVER, EAI_BADFLAGS, 101},
    {KS_ERROR_RESOLVER, EAI_FAIL, 102},
    {KS_ERROR_RESOLVER, EAI_FAMILY, 103},
    {KS_ERROR_RESOLVER, EAI_MEMORY, 104},
    {KS_ERROR_RESOLVER, EAI_NONAME, 105},
    {KS_ERROR_RESOLVER, EAI_OVERFLOW, 106},
    {KS_ERROR_RESOLVER, EAI_SERVICE, 107},
    {KS_ERROR_RESOLVER, EAI_SOCKTYPE, 108},
    {KS_ERROR_RESOLVER, EAI_SYSTEM, 109},
};

struct last_error_t {
  int value = 0;
  ks_error_kind kind = KS_ERROR_NONE;
};
thread_local last_error_t last_error;

}  // namespace

int ks_portable_number(int value, ks_error_kind kind) {
  if (value == 0) return KS_OK;
  for (const number_row_t &row : numbers) {
    if (row.kind == kind && row.value == value) return row.portable;
  }
  return KS_UNKNOWN;
}

int ks_errno_of(int portable) {
  if (portable == KS_NULL_ARGUMENT) return EINVAL;
  for (const number_row_t &row : numbers) {
    if (row.kind == KS_ERROR_ERRNO && row.portable == portable) return row.value;
  }
  return 0;
}

int ks_set_error(int value, ks_error_kind kind) {
  last_error = {value, kind};
  if (kind == KS_ERROR_ERRNO) errno = value;
  return ks_portable_number(value, kind);
}

int ks_null_argument() {
  ks_set_error(EINVAL, KS_ERROR_ERRNO);
  return KS_NULL_ARGUMENT;
}

int ks_last_error() {
  return ks_portable_number(last_error.value, last_error.kind);
}

int ks_last_error_value() {
  return last_error.value;
}

ks_error_kind ks_last_error_kind() {
  return last_error.kind;
}

}  // namespace qvr
