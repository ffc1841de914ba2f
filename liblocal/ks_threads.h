// Threads with a guaranteed stack, started in a step of their own, that can be started again.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvr {

enum ks_thread_state : int {
  KS_THREAD_MADE = 0,
  KS_THREAD_STARTING = 1,
  KS_THREAD_RUNNING = 2,
  KS_THREAD_DETACHED = 3,
  KS_THREAD_CANCELLING = 4,  // its cancellation was asked for
  KS_THREAD_ENDED = 5,
  KS_THREAD_JOINED = 6,
};

inline constexpr std::size_t KS_THREAD_STACK = 2097152;  // the least stack, bytes

struct ks_thread_t;

// Makes a handle of a thread that will call start(argument); null with errno set on failure. Every
// result below is 0 or a portable number. Any thread may call, unless told otherwise.
ks_thread_t *ks_thread_create(void *(*start)(void *argument), void *argument);
// Takes any size above KS_THREAD_STACK; 31 for that and below.
int ks_thread_set_stack(ks_thread_t *thread, std::size_t bytes);
// From the states MADE and JOINED; 18 for the calling thread itself, 12 in any other state.
int ks_thread_start(ks_thread_t *thread);
// Waits for the end. 18 for the calling thread itself, 31 for a detached thread, 78 for one that
// was not started or was joined already.
int ks_thread_join(ks_thread_t *thread, void **exit_value);
// A detached thread frees its handle at its end, so the handle is no longer the caller's.
int ks_thread_detach(ks_thread_t *thread);
// Asks for the end at the thread's next cancellation point (POSIX), or once it allows cancellation
// again. 78 when it does not run.
int ks_thread_cancel(ks_thread_t *thread);
// Turns cancellation of the calling thread off or on.
int ks_thread_allow_cancel(bool allow);
ks_thread_state ks_thread_get_state(ks_thread_t *thread);
// The process id in the high half, a number of its own in the low half: never 0, but for threads
// that were not made here.
std::uint64_t ks_thread_identity(ks_thread_t *thread);
// The calling thread's handle. One that was not made here gets a handle now; it lasts as long as
// the thread.
ks_thread_t *ks_thread_self();
// Frees a handle; 12 while its thread runs. A thread that ended unjoined is given up.
int ks_thread_destroy(ks_thread_t *thread);

}  // namespace qvr
