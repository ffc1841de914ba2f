// A tee of the standard descriptors: what a program prints goes where it went, and to a file.
#pragma once

namespace qvr {

// Starts the tee into the file `path`, which is appended to. Both standard streams become
// unbuffered. 0 when it runs; -1 otherwise, with the descriptors as they were. One tee a process;
// it ends with the process at the latest.
int setup_stdfds_tee(const char *path);

// Restores the descriptors and ends the tee once all that was printed has been copied, or after 10
// seconds. Does nothing when none runs.
void terminate_stdfds_tee();

}  // namespace qvr
