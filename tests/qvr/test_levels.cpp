// Level names both ways, and the tables of operations.
#include <gtest/gtest.h>

#include "mdb_ops.h"
#include "ss_levels.h"

namespace qvr {
namespace {

TEST(levels, names) {
  struct {
    int line;
    std::int32_t level;
    const char *name;
  } rows[] = {
      {__LINE__, 0, "full"},
      {__LINE__, 1, "1"},
      {__LINE__, 3, "3"},
      {__LINE__, 9, "9"},
      {__LINE__, 10, "incr"},
      {__LINE__, 11, "consolidate"},
      {__LINE__, 12, "txnlog"},
      {__LINE__, 13, "incr"},
      {__LINE__, 15, "incr"},
      {__LINE__, INT32_MAX, "incr"},
      {__LINE__, -1, "skip"},
      {__LINE__, -2, ""},
      {__LINE__, -3, "migration"},
      {__LINE__, -4, "full"},
      {__LINE__, -5, "full"},
      {__LINE__, -7, "full"},
      {__LINE__, -8, "consolidate"},
      {__LINE__, -9, "synth_full"},
      {__LINE__, -10, "incr_synth_full"},
      {__LINE__, -11, "exec"},
      {__LINE__, -12, "full"},
      {__LINE__, INT32_MIN, "full"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(level_name(row.level), row.name);
    EXPECT_EQ(level_report_name(row.level), row.level == -2 ? "manual" : row.name);
  }
}

TEST(levels, parsed) {
  struct {
    int line;
    const char *text;
    std::int32_t level;
  } rows[] = {
      {__LINE__, "full", 0},
      {__LINE__, "FuL", 0},
      {__LINE__, "f", 0},
      {__LINE__, "full rest", 0},
      {__LINE__, "full\n", 0},
      {__LINE__, "fullx", -2},
      {__LINE__, "ful l", -2},
      {__LINE__, "0", 0},
      {__LINE__, "9", 9},
      {__LINE__, "9 x", 9},
      {__LINE__, "9x", -2},
      {__LINE__, "10", -2},
      {__LINE__, "i", 10},
      {__LINE__, "incr", 10},
      {__LINE__, "INCR", 10},
      {__LINE__, "incr_", -2},
      {__LINE__, "incr_synt", -2},
      {__LINE__, "incr_synth", -10},
      {__LINE__, "incr_synth_full", -10},
      {__LINE__, "incr_synth_full x", -10},
      {__LINE__, "incr_synth_fullx", -2},
      {__LINE__, "s", -1},
      {__LINE__, "skip", -1},
      {__LINE__, "synt", -2},
      {__LINE__, "synth", -9},
      {__LINE__, "synth_full", -9},
      {__LINE__, "txn", 12},
      {__LINE__, "migration", -3},
      {__LINE__, "m", -3},
      {__LINE__, "exec", -11},
      {__LINE__, "consolidate", -2},
      {__LINE__, "manual", -2},
      {__LINE__, "", -2},
      {__LINE__, " full", -2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(level_parse(row.text), row.level);
  }
}

TEST(operations, names) {
  EXPECT_STREQ(mdb_op_name(0), "MDB_OP_NOT_SET");
  EXPECT_STREQ(mdb_op_name(15), "MDB_OP_CHANGE_SS_EXP");
  EXPECT_STREQ(mdb_op_name(16), "UNKNOWN");
  EXPECT_STREQ(mdb_op_name(INT32_MIN), "mdb_op_type_t_Dummy");
  EXPECT_STREQ(mdb_op_state_name(3), "MDB_IN_PROGRESS");
  EXPECT_STREQ(mdb_op_state_name(0), "UNKNOWN");
}

}  // namespace
}  // namespace qvr
