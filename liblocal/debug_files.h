// Debug output to files: one for the process, one for each thread that wants one.
#pragma once

#include <cstdio>
#include <string_view>

namespace qvr {

// Opens a file for append, unbuffered; one that is open already stays. A failure is only logged.
void dfopen(const char *path);
void dfopen_thread_level(const char *path);
// Takes an open stream and closes it later.
void dfopen_use_existing_filehndl(std::FILE *stream);
void dfopen_use_existing_thread_filehndl(std::FILE *stream);
void dfclose();
void dfclose_thread_level();

// Marks the calling thread: its lines go to its file and nowhere else.
void debug_thread_file_only(bool only);

// Writes a line to the files that are open. True when the line shall not go out as a message.
bool debug_files_write(std::string_view text);

}  // namespace qvr
