// The last failure of each thread, and the portable numbers in which the runtime reports failures.
#pragma once

namespace qvr {

enum ks_error_kind : int {
  KS_ERROR_NONE = 0,
  KS_ERROR_ERRNO = 1,     // an errno value (POSIX)
  KS_ERROR_RESOLVER = 2,  // an EAI_* value (RFC 3493)
};

// Portable numbers that callers compare with. The space is the runtime's own: it is the same on
// every platform, whatever the platform's errno values are.
inline constexpr int KS_OK = 0;
inline constexpr int KS_UNKNOWN = 1;
inline constexpr int KS_NULL_ARGUMENT = 2;  // errno is EINVAL
inline constexpr int KS_EBUSY = 12;
inline constexpr int KS_EDEADLK = 18;
inline constexpr int KS_EEXIST = 22;
inline constexpr int KS_EINVAL = 31;
inline constexpr int KS_ENOENT = 49;
inline constexpr int KS_ENOMEM = 53;
inline constexpr int KS_ERANGE = 74;
inline constexpr int KS_ESRCH = 78;
inline constexpr int KS_ETIME = 80;
inline constexpr int KS_ETIMEDOUT = 81;

// Stores the calling thread's last failure, sets errno for an errno value, and returns the portable
// number of the failure.
int ks_set_error(int value, ks_error_kind kind);
// What a routine does with a null argument: EINVAL becomes the last failure, KS_NULL_ARGUMENT the
// result.
int ks_null_argument();

// The calling thread's last failure: as its portable number, its value and its kind.
int ks_last_error();
int ks_last_error_value();
ks_error_kind ks_last_error_kind();

// Between a value and its portable number; an unknown one gives KS_UNKNOWN, 0 gives KS_OK.
int ks_portable_number(int value, ks_error_kind kind);
// The errno value of a portable number, for texts and for codes that are built on errno. EINVAL for
// KS_NULL_ARGUMENT; 0 for KS_OK and for numbers that stand for no errno value.
int ks_errno_of(int portable);

}  // namespace qvr
