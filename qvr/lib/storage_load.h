// Record files: copied whole into memory, and what is asked of the copy.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "records.h"
#include "storage_session.h"

namespace qvr {

// A record file that claims more than this is refused before memory is taken for it.
inline constexpr std::int64_t RECORD_FILE_MAX = std::int64_t{1} << 30;

// What statements on a file's content may cost: a file whose pages go in circles has rows without
// end. Counted in instructions of SQLite's machine.
class storage_budget {
 public:
  // Watches `database` as long as both live.
  void watch(sqlite3 *database);
  // A new budget, for a file of so many bytes.
  void allow(std::int64_t bytes);

 private:
  std::int64_t left_ = 0;
};

// The memory database that one record after the other is loaded into. What it holds comes from
// files of others: it runs no function, view, trigger or virtual table of theirs.
class memory_database {
 public:
  memory_database() = default;
  memory_database(const memory_database &) = delete;
  memory_database &operator=(const memory_database &) = delete;

  // Opens it empty, afresh if it is open. Message 106798.
  errobj_t *open();
  sqlite3 *get() const { return database_.get(); }
  storage_budget &budget() { return budget_; }

 private:
  storage_budget budget_;
  struct closer {
    void operator()(sqlite3 *database) const { sqlite3_close_v2(database); }
  };
  std::unique_ptr<sqlite3, closer> database_;
};

// Whether what was loaded is a record: its tables are tables with pages and plain columns of their
// own (views and virtual tables have none), and its save sets can be read to the end. The look-ups
// then meet nothing that is not theirs.
errobj_t *check_record(const memory_database &memory);

// Copies the record file at `path` over all that `memory` holds, or adds its rows with `merge`.
errobj_t *load_save_sqldb(const cat_session &session, memory_database &memory,
                          const std::string &path, bool merge);
// The same, refusing a record that is still being written (code 55001) when `check_lock` is set,
// and one that is no record database or whose save sets cannot be read.
errobj_t *load_record(const cat_session &session, memory_database &memory, const std::string &path,
                      bool check_lock);

// The save set of that time, and of that name unless it is empty, into `page`; null in `record`
// without an error when there is none. `path`, when not empty, becomes its "record file name".
errobj_t *lookup_ss_db(const memory_database &memory, std::string_view ssname, std::int64_t time,
                       const std::string &path, arena &page, ss_t *&record);
// The file name of the first index entry; empty when there is none.
errobj_t *lookup_file_name(const memory_database &memory, std::string &name);

// Sets an attribute of a record whose memory is `page`.
void set_record_attr(arena &page, ss_t &record, std::string_view name, std::string_view value);

}  // namespace qvr
