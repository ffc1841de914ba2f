// SQLite by value: a database and its statements, closed by their destructors.
#pragma once

#include <sqlite3.h>

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace qvr {

struct sqlite_closer {
  void operator()(sqlite3 *database) const { sqlite3_close(database); }
  void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
using sqlite_database = std::unique_ptr<sqlite3, sqlite_closer>;

// A prepared statement. Parameters are bound by position from 1 in the order of bind() calls;
// columns are read by position from 0. The first failure is kept until asked for.
class sqlite_statement {
 public:
  sqlite_statement(sqlite3 *database, const char *sql) {
    sqlite3_stmt *statement = nullptr;
    status_ = sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    statement_.reset(statement);
  }

  sqlite_statement &bind(std::string_view text) {
    return note(sqlite3_bind_text(statement_.get(), ++bound_, text.data(),
                                  static_cast<int>(text.size()), SQLITE_TRANSIENT));
  }
  template <std::integral Number>
  sqlite_statement &bind(Number number) {
    return note(sqlite3_bind_int64(statement_.get(), ++bound_, static_cast<sqlite3_int64>(number)));
  }
  sqlite_statement &bind_null() { return note(sqlite3_bind_null(statement_.get(), ++bound_)); }

  // True when a row was reached.
  bool step() {
    if (status_ != SQLITE_OK) return false;
    int result = sqlite3_step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) status_ = result;
    return result == SQLITE_ROW;
  }
  // Runs a statement without rows and readies it for the next values.
  void run() {
    step();
    note(sqlite3_reset(statement_.get()));
    bound_ = 0;
  }

  // Borrowed until the next step. The bytes of a blob or text as they are.
  std::string_view text(int column) {
    auto *bytes = static_cast<const char *>(sqlite3_column_blob(statement_.get(), column));
    return {bytes == nullptr ? "" : bytes,
            static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
  }
  bool is_null(int column) { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }
  std::int64_t i64(int column) { return sqlite3_column_int64(statement_.get(), column); }
  std::uint64_t u64(int column) { return static_cast<std::uint64_t>(i64(column)); }
  std::uint32_t u32(int column) { return static_cast<std::uint32_t>(i64(column)); }
  std::int32_t i32(int column) { return static_cast<std::int32_t>(i64(column)); }

  bool good() const { return status_ == SQLITE_OK; }

 private:
  sqlite_statement &note(int status) {
    if (status_ == SQLITE_OK) status_ = status;
    return *this;
  }
  std::unique_ptr<sqlite3_stmt, sqlite_closer> statement_;
  int bound_ = 0;
  int status_ = SQLITE_OK;
};

}  // namespace qvr
