#include "bhquay.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "debug_words.h"
#include "thread_key.h"

namespace qvr {

namespace {

struct slot_t {
  std::optional<errobj_t> error;
  std::vector<char> spare;  // the buffer of the file that was closed last
};
thread_key<slot_t> slot("create_thread_key_bhquay");

void keep_error(const errobj_t *error) {
  if (error != nullptr) slot.get().error = *error;
}

// What SQLite holds as its file. It makes the memory, so the rest is made in xOpen.
struct bh_file_t {
  struct state_t {
    std::unique_ptr<storage_file> file;
    std::string path;
    std::vector<char> buffer;  // empty: reads go to the storage one by one
    std::size_t filled = 0;
    std::int64_t start = 0;  // offset in the file at which the buffer starts
  };
  sqlite3_file base;  // first: SQLite knows the object by it
  state_t *state;
};

bh_file_t::state_t &state_of(sqlite3_file *file) {
  return *reinterpret_cast<bh_file_t *>(file)->state;
}

int bh_close(sqlite3_file *file) {
  auto *self = reinterpret_cast<bh_file_t *>(file);
  std::unique_ptr<bh_file_t::state_t> state(std::exchange(self->state, nullptr));
  if (state == nullptr) return SQLITE_OK;
  slot.get().spare = std::move(state->buffer);
  const errobj_t *error = state->file->close();
  keep_error(error);
  if (error != nullptr)
    KS_DEBUG(1, "bhClose: close sqlite3_file '%s' failed with error: %s\n", state->path.c_str(),
             error->text.c_str());
  return SQLITE_OK;
}

bool buffered(const bh_file_t::state_t &state, std::int64_t offset, std::size_t size) {
  return offset >= state.start && offset - state.start <= static_cast<std::int64_t>(state.filled) &&
         state.filled - static_cast<std::size_t>(offset - state.start) >= size;
}

int short_read(const errobj_t *error) {
  keep_error(error);
  return SQLITE_IOERR_SHORT_READ;
}

int read_buffered(bh_file_t::state_t &state, char *to, std::size_t size, std::int64_t offset) {
  const errobj_t *error = nullptr;
  if (!buffered(state, offset, size)) {
    state.start = offset;
    state.filled = 0;
    error = state.file->read(offset, state.buffer, state.filled);
  }
  bool whole = buffered(state, offset, size);
  std::size_t at = static_cast<std::size_t>(offset - state.start);
  // SQLite counts on what there is of a short range, with zeros behind it.
  std::memcpy(to, state.buffer.data() + at, std::min(size, state.filled - at));
  return whole ? SQLITE_OK : short_read(error);
}

int bh_read(sqlite3_file *file, void *to, int amount, sqlite3_int64 offset) {
  bh_file_t::state_t &state = state_of(file);
  auto size = static_cast<std::size_t>(amount);
  auto *bytes = static_cast<char *>(to);
  std::memset(bytes, 0, size);
  if (!state.buffer.empty() && size <= state.buffer.size())
    return read_buffered(state, bytes, size, offset);
  std::size_t got = 0;
  const errobj_t *error = state.file->read(offset, {bytes, size}, got);
  return got == size ? SQLITE_OK : short_read(error);
}

int bh_write(sqlite3_file *file, const void *from, int amount, sqlite3_int64 offset) {
  bh_file_t::state_t &state = state_of(file);
  std::size_t put = 0, size = static_cast<std::size_t>(amount);
  state.filled = 0;
  const errobj_t *error = state.file->write(offset, {static_cast<const char *>(from), size}, put);
  keep_error(error);
  return error == nullptr && put == size ? SQLITE_OK : SQLITE_IOERR_WRITE;
}

int bh_file_size(sqlite3_file *file, sqlite3_int64 *size) {
  std::int64_t bytes = 0;
  const errobj_t *error = state_of(file).file->size(bytes);
  keep_error(error);
  *size = bytes;
  return error == nullptr ? SQLITE_OK : SQLITE_IOERR_FSTAT;
}

int bh_check_reserved(sqlite3_file *, int *held) {
  *held = 0;
  return SQLITE_OK;
}

const sqlite3_io_methods methods = [] {
  sqlite3_io_methods m = {};
  m.iVersion = 1;
  m.xClose = bh_close;
  m.xRead = bh_read;
  m.xWrite = bh_write;
  m.xTruncate = [](sqlite3_file *, sqlite3_int64) { return SQLITE_OK; };
  m.xSync = [](sqlite3_file *, int) { return SQLITE_OK; };
  m.xFileSize = bh_file_size;
  m.xLock = [](sqlite3_file *, int) { return SQLITE_OK; };
  m.xUnlock = [](sqlite3_file *, int) { return SQLITE_OK; };
  m.xCheckReservedLock = bh_check_reserved;
  m.xFileControl = [](sqlite3_file *, int, void *) { return SQLITE_NOTFOUND; };
  m.xSectorSize = [](sqlite3_file *) { return 0; };
  m.xDeviceCharacteristics = [](sqlite3_file *) { return 0; };
  return m;
}();

int bh_open(sqlite3_vfs *layer, const char *name, sqlite3_file *file, int flags, int *out_flags) {
  if (file != nullptr) file->pMethods = nullptr;
  if ((flags & SQLITE_OPEN_MAIN_JOURNAL) != 0) return SQLITE_CANTOPEN;
  const auto *data = static_cast<const bhquay_data_t *>(layer->pAppData);
  if (name == nullptr || file == nullptr || data == nullptr || data->connection == nullptr)
    return SQLITE_IOERR;
  constexpr struct {
    int flag;
    storage_open_flag storage;
  } rows[] = {{SQLITE_OPEN_READWRITE, STORAGE_READ_WRITE},
              {SQLITE_OPEN_CREATE, STORAGE_CREATE},
              {SQLITE_OPEN_EXCLUSIVE, STORAGE_EXCLUSIVE}};
  unsigned how = 0;
  for (const auto &row : rows)
    if ((flags & row.flag) != 0) how |= row.storage;
  auto state = std::make_unique<bh_file_t::state_t>();
  state->path = name;
  const errobj_t *error =
      data->connection->open_file(state->path, how, STORAGE_NEW_FILE_MODE, state->file);
  keep_error(error);
  if (error != nullptr || state->file == nullptr) return SQLITE_CANTOPEN;
  if (data->cache) {
    state->buffer = std::move(slot.get().spare);
    state->buffer.resize(BHQUAY_BUFFER);
  }
  reinterpret_cast<bh_file_t *>(file)->state = state.release();
  file->pMethods = &methods;
  if (out_flags != nullptr) *out_flags = flags;
  return SQLITE_OK;
}

int bh_full_path(sqlite3_vfs *, const char *name, int size, char *out) {
  std::string path = name;
  if (!path.starts_with('/')) {
    char here[BHQUAY_PATH_MAX];
    if (getcwd(here, sizeof here) == nullptr) return SQLITE_IOERR;
    path = std::string(here) + '/' + path;
  }
  if (path.size() >= static_cast<std::size_t>(size)) return SQLITE_CANTOPEN;
  std::memcpy(out, path.c_str(), path.size() + 1);
  return SQLITE_OK;
}

bhquay_data_t application_data;  // guarded by the load lock

// The system's layer gives what has nothing to do with files.
sqlite3_vfs make_layer() {
  const sqlite3_vfs *system = sqlite3_vfs_find(nullptr);
  sqlite3_vfs layer = {};
  layer.iVersion = 1;
  layer.szOsFile = sizeof(bh_file_t);
  layer.mxPathname = BHQUAY_PATH_MAX;
  layer.zName = BHQUAY_NAME;
  layer.pAppData = &application_data;
  layer.xOpen = bh_open;
  layer.xDelete = [](sqlite3_vfs *, const char *, int) { return SQLITE_OK; };
  layer.xAccess = [](sqlite3_vfs *, const char *, int, int *there) {
    *there = 0;
    return SQLITE_OK;
  };
  layer.xFullPathname = bh_full_path;
  layer.xGetLastError = [](sqlite3_vfs *, int, char *) { return 0; };
  if (system != nullptr) {
    layer.xRandomness = [](sqlite3_vfs *, int size, char *out) {
      sqlite3_vfs *real = sqlite3_vfs_find(nullptr);
      return real->xRandomness(real, size, out);
    };
    layer.xSleep = [](sqlite3_vfs *, int microseconds) {
      sqlite3_vfs *real = sqlite3_vfs_find(nullptr);
      return real->xSleep(real, microseconds);
    };
    layer.xCurrentTime = [](sqlite3_vfs *, double *now) {
      sqlite3_vfs *real = sqlite3_vfs_find(nullptr);
      return real->xCurrentTime(real, now);
    };
  }
  return layer;
}

}  // namespace

int bhquay_register() {
  static sqlite3_vfs layer = make_layer();
  static const int status = sqlite3_vfs_register(&layer, 0);
  return status;
}

void bhquay_set_data(const bhquay_data_t &data) {
  application_data = data;
}

errobj_t *bhquay_take_error() {
  std::optional<errobj_t> &kept = slot.get().error;
  if (!kept) return nullptr;
  errobj_t *error = err_dup(&*kept);
  kept.reset();
  return error;
}

}  // namespace qvr
