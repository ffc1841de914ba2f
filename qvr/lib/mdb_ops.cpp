#include "mdb_ops.h"

#include <span>

namespace qvr {

namespace {

struct name_row_t {
  std::int32_t number;
  const char *name;
};

#define NAMED(number) \
  { number, #number }

constexpr name_row_t operation_rows[] = {
    NAMED(MDB_OP_NOT_SET),         NAMED(MDB_OP_DEL_VOL_INDEX), NAMED(MDB_OP_DEL_VOL),
    NAMED(MDB_OP_MARK_VOL),        NAMED(MDB_OP_SET_VOL_FLAGS), NAMED(MDB_OP_SET_VOL_LOCATION),
    NAMED(MDB_OP_DEL_SS_INDEX),    NAMED(MDB_OP_DEL_SS),        NAMED(MDB_OP_MARK_SS),
    NAMED(MDB_OP_SET_SS_FLAGS),    NAMED(MDB_OP_DEL_CLONE),     NAMED(MDB_OP_MARK_CLONE),
    NAMED(MDB_OP_SET_CLONE_FLAGS), NAMED(MDB_OP_SYNC_VOLS),     NAMED(MDB_OP_NULL),
    NAMED(MDB_OP_CHANGE_SS_EXP),   NAMED(mdb_op_type_t_Dummy),
};

// Both enumerations have the same marker of their width.
constexpr name_row_t state_rows[] = {
    NAMED(MDB_OP_UNKNOWN), NAMED(MDB_OP_QUEUED), NAMED(MDB_IN_PROGRESS),
    NAMED(MDB_OP_DONE),    NAMED(MDB_OP_FAILED), NAMED(mdb_op_type_t_Dummy),
};

#undef NAMED

const char *name_of(std::span<const name_row_t> rows, std::int32_t number) {
  for (const name_row_t &row : rows) {
    if (row.number == number) return row.name;
  }
  return "UNKNOWN";
}

}  // namespace

const char *mdb_op_name(std::int32_t operation) {
  return name_of(operation_rows, operation);
}

const char *mdb_op_state_name(std::int32_t state) {
  return name_of(state_rows, state);
}

}  // namespace qvr
