// The command driver: from the command line to one report.
#pragma once

namespace qvr {

// Runs the command; main thread, once. The exit status: 0 after a report, 1 after the usage text, a
// refusal or when there is nothing to report, 2 when a server cannot be reached or a client name
// not be resolved. Standard output may still hold text.
int run_command(int argc, char **argv);

// Fills the places of standard streams that the caller has closed, so that no connection takes one
// and gets a report written into it. Before anything is opened.
void keep_standard_descriptors();

// Gives standard output a large buffer where nobody watches it grow. Before anything is printed.
void widen_output();

// Lets freed memory be used again instead of giving it back to the system. Before other threads.
void keep_freed_memory();

// Writes out what standard output holds. `status`, or 1 after a message when that fails.
int finish_output(int status);

}  // namespace qvr
