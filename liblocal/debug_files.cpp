#include "debug_files.h"

#include <pthread.h>

#include <mutex>
#include <string>

#include "debug_line.h"
#include "immortal.h"
#include "msg_process.h"

namespace qvr {

namespace {

struct process_file_t {
  std::mutex mutex;  // guards the stream; held while a line is written
  std::FILE *stream = nullptr;
};

process_file_t &process_file() {
  static immortal<process_file_t> file;
  return *file;
}

// Of the calling thread; plain words, so that lines may still be written while a thread ends. The
// key closes the file of a thread that ends.
struct thread_file_t {
  std::FILE *stream;
  bool only;
};
thread_local thread_file_t thread_file{nullptr, false};

void close_thread_file(void *) {
  if (thread_file.stream != nullptr) std::fclose(thread_file.stream);
  thread_file = {nullptr, false};
}

void set_thread_file(std::FILE *stream) {
  static const pthread_key_t key = [] {
    pthread_key_t made{};
    pthread_key_create(&made, close_thread_file);
    return made;
  }();
  thread_file.stream = stream;
  pthread_setspecific(key, stream);
}

std::FILE *open_unbuffered(const char *path) {
  std::FILE *stream = std::fopen(path, "ae");
  if (stream == nullptr) {
    KS_DEBUG(2, "dfopen: Unable to open file %s for writing.\n", path);
    return nullptr;
  }
  std::setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}

bool process_file_is_open() {
  process_file_t &file = process_file();
  std::lock_guard lock(file.mutex);
  return file.stream != nullptr;
}

// False, with the stream left alone, when one is open already.
bool take_process_stream(std::FILE *stream) {
  process_file_t &file = process_file();
  std::lock_guard lock(file.mutex);
  if (file.stream != nullptr) return false;
  file.stream = stream;
  return true;
}

void write_with_prefix(std::FILE *stream, std::string_view text) {
  std::string line;
  if (debug_words.file_time_prefix != 0) line = debug_time_text() + ' ';
  line += msg_program() + ": ";
  line += text;
  std::fwrite(line.data(), 1, line.size(), stream);
}

}  // namespace

void dfopen(const char *path) {
  if (process_file_is_open()) {
    KS_DEBUG(1, "dfopen: Warning. An Outfile already exists. Simply ignore it.\n");
    return;
  }
  if (path == nullptr || *path == '\0') {
    KS_DEBUG(2, "dfopen: filename is null ... \n");
    return;
  }
  std::FILE *stream = open_unbuffered(path);
  if (stream == nullptr) return;
  if (!take_process_stream(stream)) {
    std::fclose(stream);
    return;
  }
  KS_DEBUG(2, "dfopen: Opened file %s for dprintf writing.\n", path);
}

void dfopen_thread_level(const char *path) {
  if (thread_file.stream != nullptr) {
    KS_DEBUG(1, "dfopen: Warning. An Outfile already exists. Simply ignore it.\n");
    return;
  }
  if (process_file_is_open()) {
    KS_DEBUG(1,
             "dfopen_thread_level: DPRINTF process-level handle already exists. Continue to create "
             "a thread-level handle.\n");
  }
  if (path == nullptr || *path == '\0') {
    KS_DEBUG(2, "dfopen_thread_level: filename is null ..");
    return;
  }
  std::FILE *stream = open_unbuffered(path);
  if (stream == nullptr) return;
  set_thread_file(stream);
  KS_DEBUG(2, "dfopen: Opened file %s for dprintf writing.\n", path);
}

void dfopen_use_existing_filehndl(std::FILE *stream) {
  if (stream == nullptr) {
    KS_DEBUG(2, "dfopen_use_existing_filehndl: fhp is null ... \n");
    return;
  }
  if (!take_process_stream(stream)) {
    KS_DEBUG(1, "dfopen: Warning. An Outfile already exists. Simply ignore it.\n");
    return;
  }
  std::setvbuf(stream, nullptr, _IONBF, 0);
}

void dfopen_use_existing_thread_filehndl(std::FILE *stream) {
  if (stream == nullptr) {
    KS_DEBUG(2, "dfopen_use_existing_thread_filehndl: fhp is null. \n");
    return;
  }
  if (thread_file.stream != nullptr) {
    KS_DEBUG(1, "dfopen: Warning. An Outfile already exists. Simply ignore it.\n");
    return;
  }
  std::setvbuf(stream, nullptr, _IONBF, 0);
  set_thread_file(stream);
}

void dfclose() {
  std::FILE *stream = nullptr;
  {
    process_file_t &file = process_file();
    std::lock_guard lock(file.mutex);
    std::swap(stream, file.stream);
  }
  if (stream != nullptr && std::fclose(stream) != 0) {
    KS_DEBUG(2, "dfclose: file stream close failed.\n");
  }
}

void dfclose_thread_level() {
  std::FILE *stream = thread_file.stream;
  if (stream == nullptr) return;
  set_thread_file(nullptr);
  if (std::fclose(stream) != 0) KS_DEBUG(2, "dfclose_thread_level: file stream close failed.\n");
}

void debug_thread_file_only(bool only) {
  thread_file.only = only;
}

bool debug_files_write(std::string_view text) {
  bool to_process = false;
  {
    process_file_t &file = process_file();
    std::lock_guard lock(file.mutex);
    to_process = file.stream != nullptr && !thread_file.only;
    if (to_process) write_with_prefix(file.stream, text);
  }
  if (thread_file.stream != nullptr) write_with_prefix(thread_file.stream, text);
  return to_process || thread_file.only;
}

}  // namespace qvr
