// The background operation queue of the media database: the numbers of its operations and states.
#pragma once

#include <cstdint>

namespace qvr {

enum mdb_op_type_t : std::int32_t {
  MDB_OP_NOT_SET = 0,
  MDB_OP_DEL_VOL_INDEX = 1,
  MDB_OP_DEL_VOL = 2,
  MDB_OP_MARK_VOL = 3,
  MDB_OP_SET_VOL_FLAGS = 4,
  MDB_OP_SET_VOL_LOCATION = 5,
  MDB_OP_DEL_SS_INDEX = 6,
  MDB_OP_DEL_SS = 7,
  MDB_OP_MARK_SS = 8,
  MDB_OP_SET_SS_FLAGS = 9,
  MDB_OP_DEL_CLONE = 10,
  MDB_OP_MARK_CLONE = 11,
  MDB_OP_SET_CLONE_FLAGS = 12,
  MDB_OP_SYNC_VOLS = 13,
  MDB_OP_NULL = 14,
  MDB_OP_CHANGE_SS_EXP = 15,
  mdb_op_type_t_Dummy = INT32_MIN,
};

enum mdb_op_state_t : std::int32_t {
  MDB_OP_UNKNOWN = 1,
  MDB_OP_QUEUED = 2,
  MDB_IN_PROGRESS = 3,
  MDB_OP_DONE = 4,
  MDB_OP_FAILED = 5,
};

// The names as they stand above; "UNKNOWN" for any other number. Constant texts. Any thread.
const char *mdb_op_name(std::int32_t operation);
const char *mdb_op_state_name(std::int32_t state);

}  // namespace qvr
