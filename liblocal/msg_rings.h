// The per-thread rings in which messages and errors lie.
#pragma once

#include <cstddef>

#include "errobj.h"

namespace qvr {

inline constexpr std::size_t ERROBJ_RING = 32;
inline constexpr std::size_t MSG_SMALL_RING = 200, MSG_SMALL_BYTES = 3072;
inline constexpr std::size_t MSG_LARGE_RING = 50, MSG_LARGE_BYTES = 18432;
inline constexpr std::int32_t STRTXT_FREE_ID = -5;

// The next buffer of the calling thread's ring, of MSG_SMALL_BYTES or MSG_LARGE_BYTES. It is the
// caller's until the ring comes round again.
char *msg_small_buffer();
char *msg_large_buffer();

// The next error object of the thread, emptied.
errobj_t *msg_next_error();
// The next structured text of the thread's pool, emptied. The pool has 32 slots, or 64 or 128 by
// MSG_STRUCTURED_TEXT_POOL_SIZE. One that is in use still is named on the
// standard error stream at debug level 9.
strtxt_t *msg_next_strtxt();
// Gives a structured text of the pool back before the ring comes round.
void strtxt_release(strtxt_t *message);

}  // namespace qvr
