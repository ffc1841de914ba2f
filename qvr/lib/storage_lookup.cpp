// Save sets and file names in a loaded record.
#include "storage_load.h"
#include "storage_statement.h"
#include "xdr_records.h"

namespace qvr {

namespace {

std::string_view blob(sqlite3_stmt *statement) {
  const auto *bytes = static_cast<const char *>(sqlite3_column_blob(statement, 0));
  auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, 0));
  return bytes == nullptr ? std::string_view("") : std::string_view(bytes, size);
}

errobj_t *bind(sqlite3 *database, sqlite3_stmt *statement, std::string_view ssname,
               std::int64_t time) {
  int status = sqlite3_bind_int64(statement, 1, time);
  if (status != SQLITE_OK)
    return err_create(106803, 55000,
                      "Error occurred in an SQL query savetime bind operation: %s time: %s (%d).\n",
                      {{MSG_ARG_ERRTEXT, sqlite3_errmsg(database)},
                       {MSG_ARG_SAVETIME, std::to_string(time)},
                       {MSG_ARG_INT, std::to_string(status)}});
  if (ssname.empty()) return nullptr;
  status = sqlite3_bind_text64(statement, 2, ssname.data(), ssname.size(), SQLITE_TRANSIENT,
                               SQLITE_UTF8);
  if (status == SQLITE_OK) return nullptr;
  return err_create(
      115060, 55000,
      "Error occurred in an SQL query save set name bind: %s save set name: %s (%d).\n",
      {{MSG_ARG_ERRTEXT, sqlite3_errmsg(database)},
       {MSG_ARG_SAVESET, ssname},
       {MSG_ARG_INT, std::to_string(status)}});
}

}  // namespace

void set_record_attr(arena &page, ss_t &record, std::string_view name, std::string_view value) {
  attrlist attrs = record.attrs.unpack();
  attrlist_set(attrs, name, value);
  record.attrs = packed_attrs(page.copy(packed_attrs::pack(attrs)));
}

errobj_t *lookup_ss_db(const memory_database &memory, std::string_view ssname, std::int64_t time,
                       const std::string &path, arena &page, ss_t *&record) {
  record = nullptr;
  storage_statement statement;
  const char *sql = ssname.empty()
                        ? "SELECT xdr FROM tbl_ss_records WHERE ss_time = ?"
                        : "SELECT xdr FROM tbl_ss_records WHERE ss_time = ? AND ss_name = ?";
  if (errobj_t *error = storage_prepare(memory.get(), sql, statement)) return error;
  if (errobj_t *error = bind(memory.get(), statement.get(), ssname, time)) return error;
  ss_t *found = nullptr;
  int status;
  while ((status = sqlite3_step(statement.get())) == SQLITE_ROW) {
    if (found != nullptr)
      return err_create(106853, 55000,
                        "The save set has multiple entries in the index. There should only be a "
                        "single entry.\n");
    xdr_memory_reader in(blob(statement.get()));
    found = page.make<ss_t>();
    if (!xdr_get_ss(in, page, *found))
      return err_create(140346, 55000,
                        "Unable to perform save set lookup operation due to an error in data "
                        "decoding.\n");
    if (!path.empty()) set_record_attr(page, *found, "record file name", path);
  }
  if (status != SQLITE_DONE) return storage_step_error(status);
  record = found;
  return nullptr;
}

errobj_t *lookup_file_name(const memory_database &memory, std::string &name) {
  storage_statement statement;
  if (errobj_t *error =
          storage_prepare(memory.get(), "SELECT filename FROM tbl_idx_records LIMIT 1", statement))
    return error;
  int status = sqlite3_step(statement.get());
  if (status == SQLITE_ROW)
    name = blob(statement.get());
  else if (status != SQLITE_DONE)
    return storage_step_error(status);
  return nullptr;
}

}  // namespace qvr
