// Descriptors that stay open when a child process closes all others.
#pragma once

namespace qvr {

// At most ten; a further one is told as an unexpected error and refused. Any thread.
bool excepted_fd_add(int fd);
void excepted_fd_remove(int fd);
bool excepted_fd_has(int fd);

// Closes all descriptors above 2 but the excepted ones. For a child between fork and exec.
void close_unexcepted_fds();

}  // namespace qvr
