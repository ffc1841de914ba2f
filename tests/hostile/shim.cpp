// Preloaded into the command: an allocation fails, or the clock jumps, at the n-th call; waits are
// short.
//   HOSTILE_ALLOC=N     the N-th allocation fails; N+: it and all later ones
//   HOSTILE_HURRY=F     the monotonic clock runs F times as fast, and waits take as much less
//   HOSTILE_CLOCK=N:S   from the N-th look at the clock on, the time of day is S seconds further
//   HOSTILE_COUNT=FILE  how many allocations and looks there were, written at the end
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
timespec start{};

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
  if (const char *text = getenv("HOSTILE_HURRY")) {
    clock_gettime(CLOCK_MONOTONIC, &start);
    haste = strtol(text, &end, 10);
  }
  allocations = 0;
}

constexpr long SECOND = 1000000000;

timespec scaled(const timespec &time, long times, long parts) {
  __int128 all = (static_cast<__int128>(time.tv_sec) * SECOND + time.tv_nsec) * times / parts;
  return {static_cast<time_t>(all / SECOND), static_cast<long>(all % SECOND)};
}

timespec hurried(const timespec &now) {
  timespec passed = {now.tv_sec - start.tv_sec, now.tv_nsec - start.tv_nsec};
  timespec more = scaled(passed, haste, 1);
  long nanoseconds = start.tv_nsec + more.tv_nsec;
  return {start.tv_sec + more.tv_sec + nanoseconds / SECOND, nanoseconds % SECOND};
}

template <class Call>
Call real(const char *name) {
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

__attribute__((destructor)) void tell() {
  const char *name = getenv("HOSTILE_COUNT");
  if (name == nullptr) return;
  long counts[] = {allocations, looks};
  failing = 0;
  if (FILE *file = fopen(name, "w")) {
    fprintf(file, "%ld %ld\n", counts[0], counts[1]);
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
  if (result == 0 && clock == CLOCK_MONOTONIC && haste != 1) *out = hurried(*out);
  return result;
}

int poll(pollfd *fds, nfds_t count, int timeout) {
  static auto call = real<int (*)(pollfd *, nfds_t, int)>("poll");
  return call(fds, count, timeout <= 0 ? timeout : static_cast<int>(timeout / haste + 1));
}

int nanosleep(const timespec *time, timespec *rest) {
  static auto call = real<int (*)(const timespec *, timespec *)>("nanosleep");
  timespec less = scaled(*time, 1, haste);
  return call(&less, rest);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest) {
  static auto call = real<int (*)(clockid_t, int, const timespec *, timespec *)>("clock_nanosleep");
  timespec less = (flags & TIMER_ABSTIME) != 0 ? *time : scaled(*time, 1, haste);
  return call(clock, flags, &less, rest);
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
