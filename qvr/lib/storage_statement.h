// Statements on a loaded record.
#pragma once

#include <sqlite3.h>

#include <memory>

#include "errobj.h"

namespace qvr {

struct storage_finalizer {
  void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};
using storage_statement = std::unique_ptr<sqlite3_stmt, storage_finalizer>;

// Message 115059.
errobj_t *storage_prepare(sqlite3 *database, const char *sql, storage_statement &statement);
errobj_t *storage_prepare_error(const char *text, int status);
// What a step with another result than a row or the end is told as (message 106813).
errobj_t *storage_step_error(int status);

}  // namespace qvr
