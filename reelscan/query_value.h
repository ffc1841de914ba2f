// The values of a query, by the type of their field.
#pragma once

#include <cstdint>
#include <string>

#include "constraint.h"
#include "query_spec.h"
#include "spec_reader.h"

namespace qvr {

// How a field is compared. `bits` are those of qc_cmp; a strict bound moves its value inward by
// one, so that stored bounds are always inclusive.
struct comparator_t {
  std::uint32_t bits = 0;
  bool strict = false;
};

// Texts and identifiers lie in `text`, everything else in `number`, a keyword's truth value as 1 or
// 0. Levels, times and durations are signed.
struct query_value_t {
  std::string text;
  std::uint64_t number = 0;
};

// True for the types whose values are texts.
bool query_type_is_text(rpt_type type);
// True for the types whose values compare as signed numbers.
bool query_type_is_signed(rpt_type type);

// Reads the value of a field up to a comma or the end. False when it does not fit the type.
bool read_query_value(spec_reader &in, const mr_t &field, comparator_t comparator,
                      name_to_id_t name_to_id, query_value_t &value);

}  // namespace qvr
