// Preloaded into the command: an allocation fails, or the clock jumps, at the n-th call; waits are
// short.
//   HOSTILE_ALLOC=N     the N-th allocation fails; N+: it and all later ones
//   HOSTILE_HURRY=F     waits take F times less, sleeps less than that; the monotonic clock then
//                       stands where it would stand, so that what is told of a wait can be measured
//   HOSTILE_CLOCK=N:S   from the N-th look at the clock on, the time of day is S seconds further
//   HOSTILE_COUNT=FILE  how many allocations and looks there were and the milliseconds that were
//                       skipped, written at the end
#include <dlfcn.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<long> allocations{0}, looks{0};
long failing = 0;  // 0: none
bool for_good = false;
long jump_from = 0, jump = 0;
long haste = 1;
constexpr long SLEEP_HASTE = 10;  // a sleep waits for nobody
constexpr int PATIENCE = 10;      // slices of a wait
std::atomic<long> ahead{0};       // nanoseconds by which the monotonic clock is before the real one

// Some of its own needs the C library cannot do without: then it ends the process itself.
void tell_of_library(const void *caller) {
  Dl_info where{};
  const char text[] = "hostile: the C library asks for memory\n";
  if (dladdr(caller, &where) != 0 && strstr(where.dli_fname, "/libc.so") != nullptr)
    static_cast<void>(!write(2, text, sizeof text - 1));
}

bool fails(const void *caller) {
  long number = ++allocations;
  bool struck = failing != 0 && (number == failing || (for_good && number > failing));
  if (!struck) return false;
  if (number == failing) tell_of_library(caller);
  errno = ENOMEM;
  return true;
}

long shift() {
  long number = ++looks;
  return jump_from != 0 && number >= jump_from ? jump : 0;
}

// Allocations before this are the loader's.
__attribute__((constructor)) void begin() {
  char *end = nullptr;
  if (const char *text = getenv("HOSTILE_ALLOC")) {
    failing = strtol(text, &end, 10);
    for_good = *end == '+';
  }
  if (const char *text = getenv("HOSTILE_CLOCK")) {
    jump_from = strtol(text, &end, 10);
    if (*end == ':') jump = strtol(end + 1, nullptr, 10);
  }
  if (const char *text = getenv("HOSTILE_HURRY")) haste = strtol(text, &end, 10);
  allocations = 0;
}

template <class Call>
Call real(const char *name) {
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

constexpr long MILLISECOND = 1000000, SECOND = 1000000000;

timespec time_of(long nanoseconds) {
  return {nanoseconds / SECOND, nanoseconds % SECOND};
}

long real_now() {
  static auto call = real<int (*)(clockid_t, timespec *)>("clock_gettime");
  timespec now{};
  call(CLOCK_MONOTONIC, &now);
  return now.tv_sec * SECOND + now.tv_nsec;
}

long monotonic_now() {
  return real_now() + ahead;
}

// A wait is over: the time has passed, once for all threads that waited side by side.
void skip_to(long moment) {
  long now = real_now(), had = ahead;
  while (now + had < moment && !ahead.compare_exchange_weak(had, moment - now)) {
  }
}

__attribute__((destructor)) void tell() {
  const char *name = getenv("HOSTILE_COUNT");
  if (name == nullptr) return;
  long counts[] = {allocations, looks, ahead / MILLISECOND};
  failing = 0;
  if (FILE *file = fopen(name, "w")) {
    fprintf(file, "%ld %ld %ld\n", counts[0], counts[1], counts[2]);
    fclose(file);
  }
}

}  // namespace

extern "C" {

#ifndef HOSTILE_SANITIZED
void *malloc(size_t size) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}
void *realloc(void *old, size_t size) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_realloc(old, size);
}
void *memalign(size_t alignment, size_t size) {
  return fails(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
}
void *aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
int posix_memalign(void **out, size_t alignment, size_t size) {
  void *got = memalign(alignment, size);
  if (got == nullptr) return ENOMEM;
  *out = got;
  return 0;
}
#endif

int clock_gettime(clockid_t clock, timespec *out) {
  static auto call = real<int (*)(clockid_t, timespec *)>("clock_gettime");
  int result = call(clock, out);
  if (result == 0 && clock == CLOCK_REALTIME) out->tv_sec += shift();
  if (result == 0 && clock == CLOCK_MONOTONIC && haste != 1) *out = time_of(monotonic_now());
  return result;
}

int poll(pollfd *fds, nfds_t count, int timeout) {
  static auto call = real<int (*)(pollfd *, nfds_t, int)>("poll");
  if (timeout <= 0 || haste == 1) return call(fds, count, timeout);
  // A wait comes in slices: what has been silent for many alike will be so for the rest of them.
  static thread_local int alike = 0, last = 0;
  alike = timeout == last ? alike + 1 : 0;
  last = timeout;
  long until = monotonic_now() + timeout * MILLISECOND;
  int result = call(fds, count, alike < PATIENCE ? static_cast<int>(timeout / haste + 1) : 1);
  if (result == 0) {
    skip_to(until);
  } else {
    last = 0;
  }
  return result;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest) {
  static auto call = real<int (*)(clockid_t, int, const timespec *, timespec *)>("clock_nanosleep");
  if ((flags & TIMER_ABSTIME) != 0 || haste == 1) return call(clock, flags, time, rest);
  long length = time->tv_sec * SECOND + time->tv_nsec, until = monotonic_now() + length;
  timespec less = time_of(length / haste / SLEEP_HASTE);
  int result = call(clock, flags, &less, rest);
  if (result == 0) skip_to(until);
  return result;
}

int nanosleep(const timespec *time, timespec *rest) {
  int error = clock_nanosleep(CLOCK_REALTIME, 0, time, rest);
  if (error != 0) errno = error;
  return error == 0 ? 0 : -1;
}

time_t time(time_t *out) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (out != nullptr) *out = now.tv_sec;
  return now.tv_sec;
}

int gettimeofday(timeval *out, void *) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *out = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

}  // extern "C"
