// One field of a query.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fields.h"

namespace qvr {

enum qc_bit : std::uint32_t {
  QC_UPPER = 0x01,      // an upper bound is set
  QC_EQUAL = 0x02,      // bounds are inclusive; alone: one single value
  QC_LOWER = 0x04,      // a lower bound is set
  QC_RANGE = 0x08,      // both bounds are set
  QC_KEYWORD = 0x10,    // a test of flags
  QC_LIST = 0x22,       // a list of alternatives
  QC_NOT_EQUAL = 0x40,  // a single "!="
  QC_MIXED = 0xC2,      // a list of "=" and "!=" values
};

// Numbers, sizes, levels, times and durations lie in qc_lo and qc_hi as 64-bit integers (read as
// signed where the field is); texts lie in `values`, one for a single value. A keyword has the mask
// of the flags tested in qc_lo and those that must be set in qc_hi; an attribute keyword its truth
// value in qc_hi.
struct query_constraint_t {
  const mr_t *qc_mr = nullptr;
  std::uint32_t qc_cmp = 0;
  std::uint64_t qc_lo = 0;
  std::uint64_t qc_hi = 0;
  std::uint16_t qc_eqbits = 0;
  std::vector<std::string> values;
};
// Codes above 49 first, highest code first; the others behind them in the order in which they came.
using query_constraints_t = std::vector<query_constraint_t>;

}  // namespace qvr
