#include "storage_load.h"

#include <cstring>

#include "bhquay.h"
#include "debug_words.h"
#include "ks_errors.h"
#include "ks_mutex.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr int VALUE_MAX = 256 << 20;  // bytes of one text or blob

constexpr int ASK_EVERY = 1 << 16;  // instructions
constexpr std::int64_t ASKS = 64, BYTES_AN_ASK = 4096;

std::string number_text(int number) {
  return std::to_string(number);
}

// Why a database did not open, or what it says of its last call.
const char *reason(sqlite3 *database, int status) {
  return database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(status);
}

// A database that others wrote is data and nothing more.
void distrust(sqlite3 *database) {
  sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  sqlite3_limit(database, SQLITE_LIMIT_LENGTH, VALUE_MAX);
}

errobj_t *execute(sqlite3 *database, const char *sql) {
  if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return nullptr;
  return err_create(106787, 55000, "SQL error occurred during an execute operation: %s.\n",
                    {{MSG_ARG_ERRTEXT, sqlite3_errmsg(database)}});
}

errobj_t *open_error(const std::string &path, const char *text, int status) {
  return err_create(
      115057, status == SQLITE_CANTOPEN ? 15002 : 15022,
      "Unable to open SQL database '%s' due to an error: %s (%d).\n",
      {{MSG_ARG_PATH, path}, {MSG_ARG_ERRTEXT, text}, {MSG_ARG_INT, number_text(status)}});
}

// The file as the file layer has it; null when it has none.
sqlite3_file *object_of(sqlite3 *file) {
  sqlite3_file *object = nullptr;
  sqlite3_file_control(file, "main", SQLITE_FCNTL_FILE_POINTER, &object);
  return object != nullptr && object->pMethods != nullptr ? object : nullptr;
}

// 0 when it cannot be told.
std::int64_t size_of(sqlite3_file *object) {
  sqlite3_int64 size = 0;
  bool told = object != nullptr && object->pMethods->xFileSize(object, &size) == SQLITE_OK;
  return told ? size : 0;
}

// SQLite reads what is missing of a file's last page as zeros. The size of a page stands in the
// bytes 16 and 17 (SQLite database file format, 1.3.2).
bool is_cut(sqlite3 *file) {
  sqlite3_file *object = object_of(file);
  unsigned char head[2] = {};
  if (object == nullptr || object->pMethods->xRead(object, head, 2, 16) != SQLITE_OK) return true;
  int page_size = head[0] << 8 | head[1] << 16;
  page_size = page_size > 65536 ? page_size >> 8 : page_size;
  return page_size == 0 || size_of(object) % page_size != 0;
}

errobj_t *open_file(const std::string &path, sqlite3 *&file) {
  int status =
      sqlite3_open_v2(path.c_str(), &file, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, BHQUAY_NAME);
  if (status != SQLITE_OK) {
    // The cause of a file that is there but cannot be opened travels beside SQLite's own answer.
    return open_error(path, reason(file, status), status);
  }
  distrust(file);
  if (size_of(object_of(file)) > RECORD_FILE_MAX)
    return open_error(path, sqlite3_errstr(SQLITE_TOOBIG), SQLITE_TOOBIG);
  return nullptr;
}

errobj_t *close_file(const std::string &path, sqlite3 *file) {
  int status = sqlite3_close(file);
  if (status == SQLITE_OK) return nullptr;
  errobj_t *error =
      err_create(115058, 55000, "Unable to close SQL database '%s' due to an error: %s (%d).\n",
                 {{MSG_ARG_PATH, path},
                  {MSG_ARG_ERRTEXT, reason(file, status)},
                  {MSG_ARG_INT, number_text(status)}});
  sqlite3_close_v2(file);  // it goes when nobody uses it any more
  return error;
}

int copy_once(sqlite3 *file, sqlite3 *memory, const char *name) {
  sqlite3_backup *backup = sqlite3_backup_init(memory, name, file, "main");
  if (backup == nullptr) return sqlite3_errcode(memory);
  int status = sqlite3_backup_step(backup, -1);
  int end = sqlite3_backup_finish(backup);
  if (status == SQLITE_DONE) return end;
  return end != SQLITE_OK ? end : status;
}

errobj_t *copy(sqlite3 *file, memory_database &memory, bool merge) {
  int status = copy_once(file, memory.get(), merge ? "backupdb" : "main");
  if (status == SQLITE_READONLY && !merge) {
    // A database in memory keeps its first page size: one of another size needs a new database.
    if (errobj_t *error = memory.open()) return error;
    status = copy_once(file, memory.get(), "main");
  }
  if (status == SQLITE_OK && !is_cut(file)) return nullptr;
  if (status == SQLITE_OK) status = SQLITE_CORRUPT;
  if (errobj_t *error = bhquay_take_error()) return error;
  return err_create(
      106789, 55170, "Unable to complete backup step due to an SQL error: %s (%d).\n",
      {{MSG_ARG_ERRTEXT, sqlite3_errstr(status)}, {MSG_ARG_INT, number_text(status)}});
}

errobj_t *copy_and_merge(sqlite3 *file, memory_database &memory) {
  if (errobj_t *error = execute(memory.get(), "ATTACH DATABASE ':memory:' AS backupdb"))
    return error;
  errobj_t *error = copy(file, memory, true);
  for (const char *sql : {"INSERT INTO tbl_idx_records SELECT * FROM backupdb.tbl_idx_records",
                          "INSERT INTO tbl_ss_records SELECT * FROM backupdb.tbl_ss_records"})
    if (error == nullptr) error = execute(memory.get(), sql);
  errobj_t *detached = execute(memory.get(), "DETACH DATABASE backupdb");
  return error != nullptr ? error : detached;
}

errobj_t *load_locked(const cat_session &session, memory_database &memory, const std::string &path,
                      bool merge) {
  bool cache = !attrlist_has(session.attributes, "index cache enabled", "False");
  if (!cache) KS_DEBUG(1, "load_save_sqldb: index bh caching is disabled.\n");
  bhquay_set_data({session.connection.get(), cache});
  bhquay_take_error();  // nothing of an earlier load
  sqlite3 *file = nullptr;
  storage_budget budget;
  errobj_t *error = open_file(path, file);
  if (error == nullptr) {
    const std::int64_t size = size_of(object_of(file));
    budget.watch(file);
    budget.allow(size);
    memory.budget().allow(size);
  }
  bool opened = error == nullptr;
  for (const char *sql : {"PRAGMA temp_store = 2", "PRAGMA journal_mode = off"})
    if (error == nullptr) error = execute(file, sql);
  bool ready = error == nullptr;
  if (ready) error = merge ? copy_and_merge(file, memory) : copy(file, memory, false);
  errobj_t *closed = close_file(path, file);
  errobj_t *storage = bhquay_take_error();
  bhquay_set_data({});
  // The statements read the file's head, so that they are the first to meet a file that is
  // elsewhere.
  if (opened && !ready && storage_is_on_cloud_tier(storage)) return storage;
  if (error != nullptr) return error;
  return closed != nullptr ? closed : storage;
}

// Reading of the two tables and comparing are all that a look-up may do.
int allow(void *, int action, const char *, const char *, const char *, const char *inside) {
  if (inside != nullptr) return SQLITE_DENY;  // within a view or trigger
  if (action == SQLITE_FUNCTION || action == SQLITE_RECURSIVE) return SQLITE_DENY;
  return SQLITE_OK;
}

}  // namespace

void storage_budget::watch(sqlite3 *database) {
  auto ask = [](void *self) { return --static_cast<storage_budget *>(self)->left_ < 0 ? 1 : 0; };
  sqlite3_progress_handler(database, ASK_EVERY, ask, this);
}

void storage_budget::allow(std::int64_t bytes) {
  left_ = ASKS + bytes / BYTES_AN_ASK;
}

errobj_t *memory_database::open() {
  database_.reset();
  sqlite3 *opened = nullptr;
  int status =
      sqlite3_open_v2(":memory:", &opened,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  database_.reset(opened);
  if (status != SQLITE_OK)
    return err_create(106798, 55000, "Unable to open the database: %s\n",
                      {{MSG_ARG_ERRTEXT, reason(opened, status)}});
  distrust(opened);
  sqlite3_set_authorizer(opened, allow, nullptr);
  budget_.watch(opened);
  return nullptr;
}

errobj_t *load_save_sqldb(const cat_session &session, memory_database &memory,
                          const std::string &path, bool merge) {
  KSMutex *lock = storage_load_lock();
  int status = ks_mutex_lock(lock);
  if (status != 0)
    return err_create(
        106788, 55000,
        "Unable to obtain a lock during index database load due to the error: %s "
        "(%d).\n",
        {{MSG_ARG_ERRTEXT, ks_strerror(ks_errno_of(status))}, {MSG_ARG_INT, number_text(status)}});
  errobj_t *error = load_locked(session, memory, path, merge);
  status = ks_mutex_unlock(lock);
  if (status == 0 || error != nullptr) return error;
  return err_create(
      106792, 55170,
      "Unable to remove a lock during index database load due to the error: %s "
      "(%d).\n",
      {{MSG_ARG_ERRTEXT, ks_strerror(ks_errno_of(status))}, {MSG_ARG_INT, number_text(status)}});
}

errobj_t *load_record(const cat_session &session, memory_database &memory, const std::string &path,
                      bool check_lock) {
  if (path.empty())
    return err_create(155513, 55000, "Unable to verify the file due to a missing pathname.\n");
  if (check_lock) {
    bool locked = false;
    std::string marker = path + std::string(LCK_SUFFIX);
    if (errobj_t *error = storage_exists(*session.connection, marker, locked)) return error;
    if (locked)
      return err_create(155512, 55001, "Unable to load record '%s'. This record is incomplete.\n",
                        {{MSG_ARG_PATH, path}});
  }
  if (errobj_t *error = load_save_sqldb(session, memory, path, false)) return error;
  return check_record(memory);
}

}  // namespace qvr
