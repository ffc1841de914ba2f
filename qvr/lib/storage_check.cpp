// Is a loaded file a record at all? Its schema comes from others.
#include <iterator>
#include <string>
#include <string_view>

#include "attrlist.h"
#include "storage_load.h"
#include "storage_statement.h"

namespace qvr {

namespace {

struct table_t {
  std::string_view name;
  std::string_view plain;  // as the schema keeps what the writer says
  const char *columns;     // asks for those that are read and are no formula
  int count;               // of them
  bool required;
};
constexpr table_t TABLES[] = {
    {"tbl_ss_records", "CREATE TABLE tbl_ss_records (ss_name TEXT, ss_time INTEGER, xdr BLOB)",
     "SELECT 1 FROM pragma_table_xinfo('tbl_ss_records') WHERE hidden = 0 AND name COLLATE NOCASE "
     "IN ('ss_name', 'ss_time', 'xdr')",
     3, true},
    {"tbl_idx_records",
     "CREATE TABLE tbl_idx_records (filename TEXT, fid TEXT, savetime INTEGER, xdr BLOB)",
     "SELECT 1 FROM pragma_table_xinfo('tbl_idx_records') WHERE hidden = 0 AND name COLLATE NOCASE "
     "= 'filename'",
     1, false},
};

std::string_view text(sqlite3_stmt *statement, int column) {
  const auto *bytes = static_cast<const char *>(sqlite3_column_blob(statement, column));
  auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  return bytes == nullptr ? std::string_view() : std::string_view(bytes, size);
}

// Runs a statement to its end; `take` gets each row.
template <class Take>
errobj_t *run(const memory_database &memory, const char *sql, Take take) {
  storage_statement statement;
  if (errobj_t *error = storage_prepare(memory.get(), sql, statement)) return error;
  int status;
  while ((status = sqlite3_step(statement.get())) == SQLITE_ROW) take(statement.get());
  return status == SQLITE_DONE ? nullptr : storage_step_error(status);
}

// What the schema has by the name of a table.
struct found_t {
  bool there = false, real = false, plain = false;
};
constexpr std::size_t COUNT = std::size(TABLES);

errobj_t *find_tables(const memory_database &memory, found_t (&found)[COUNT]) {
  return run(memory, "SELECT name, sql, type, rootpage FROM sqlite_schema", [&](sqlite3_stmt *row) {
    for (std::size_t i = 0; i < COUNT; i++) {
      if (attr_name_cmp(text(row, 0), TABLES[i].name) != 0) continue;
      found[i].there = true;
      found[i].real = text(row, 2) == "table" && sqlite3_column_int64(row, 3) > 0;
      found[i].plain = text(row, 1) == TABLES[i].plain;
    }
  });
}

errobj_t *check_table(const memory_database &memory, const table_t &table, const found_t &found) {
  if (!found.there && !table.required) return nullptr;
  bool good = found.real;
  if (good && !found.plain) {
    int columns = 0;
    if (errobj_t *error = run(memory, table.columns, [&](sqlite3_stmt *) { columns++; }))
      return error;
    good = columns == table.count;
  }
  if (good) return nullptr;
  return storage_prepare_error(("no such table: " + std::string(table.name)).c_str(), SQLITE_ERROR);
}

}  // namespace

errobj_t *check_record(const memory_database &memory) {
  found_t found[COUNT];
  if (errobj_t *error = find_tables(memory, found)) return error;
  for (std::size_t i = 0; i < COUNT; i++)
    if (errobj_t *error = check_table(memory, TABLES[i], found[i])) return error;
  return run(memory, "SELECT xdr FROM tbl_ss_records NOT INDEXED", [](sqlite3_stmt *) {});
}

errobj_t *storage_prepare(sqlite3 *database, const char *sql, storage_statement &statement) {
  sqlite3_stmt *prepared = nullptr;
  int status = sqlite3_prepare_v2(database, sql, -1, &prepared, nullptr);
  statement.reset(prepared);
  return status == SQLITE_OK ? nullptr : storage_prepare_error(sqlite3_errmsg(database), status);
}

errobj_t *storage_prepare_error(const char *text, int status) {
  return err_create(115059, 55000, "Error occurred in an SQL prepare statement: %s (%d).\n",
                    {{MSG_ARG_ERRTEXT, text}, {MSG_ARG_INT, std::to_string(status)}});
}

errobj_t *storage_step_error(int status) {
  return err_create(106813, 55000,
                    "Unable to perform save set lookup operation due to an error %d.\n",
                    {{MSG_ARG_INT, std::to_string(status)}});
}

}  // namespace qvr
