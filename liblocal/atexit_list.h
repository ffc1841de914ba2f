// What runs when the process ends, and the once-only start of the runtime under it.
#pragma once

namespace qvr {

using ks_atexit_fn = void (*)();

// Readies the runtime: the exit list and the mutexes of the names. Every call of the runtime that
// needs it makes this call itself. A failure prints its message and raises SIGTERM. Any thread.
void ks_runtime_start();

// Keeps the runtime from registering itself with atexit(3); the program calls ks_runtime_end.
// Effective only before the first use of the runtime.
void ks_runtime_opt_out();

// Appends `function` to the list that runs at exit, in the order of registration. Libraries use it
// in place of atexit(3). 0, or a portable number; ESRCH's when the list has run already.
int ks_atexit(ks_atexit_fn function);

// Runs the list and takes the runtime down; the second call does nothing. For programs that opted
// out, and the body of the automatic handling.
void ks_runtime_end();

// True from the moment the exit list starts to run.
bool ks_process_ending();

}  // namespace qvr
