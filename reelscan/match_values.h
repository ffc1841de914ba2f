// The tests of single values against a constraint. All are pure; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "constraint.h"

namespace qvr {

// Whether the upper bound of a time counts.
enum class upper_bound { counts, off };

// Both forms of forever are forever, in the record and in the constraint: it passes every lower
// bound and no upper one but forever.
bool time_matches(const query_constraint_t &qc, std::int64_t value,
                  upper_bound upper = upper_bound::counts);
// Compares at the granularity of each bound: days, hours, minutes or seconds.
bool duration_matches(const query_constraint_t &qc, std::int64_t value);
bool number_matches(const query_constraint_t &qc, std::uint64_t value);
bool signed_matches(const query_constraint_t &qc, std::int64_t value);
// The tested flags are exactly those required.
bool flags_match(const query_constraint_t &qc, std::uint64_t flags);

// A text of a constraint is compared by the locale's collation when it stands alone, by bytes in a
// list; ignoring case, by ASCII. A null text (data() == nullptr) never passes.
bool text_matches(const query_constraint_t &qc, std::string_view value);
bool text_matches_nocase(const query_constraint_t &qc, std::string_view value);
bool equal_nocase(std::string_view a, std::string_view b);
// True when the texts are equal under strcoll.
bool equal_collated(std::string_view a, std::string_view b);

// True when one of the constraint's texts is empty: it asks for absence.
bool asks_empty(const query_constraint_t &qc);
// Exactly one value or one flag test, neither a list nor a bound.
inline bool is_single(const query_constraint_t &qc) {
  return qc.qc_cmp == QC_EQUAL;
}
inline std::string_view first_text(const query_constraint_t &qc) {
  return qc.values.empty() ? std::string_view("") : std::string_view(qc.values.front());
}

// The other forms under which a save set name may stand in the database: the text in the locale's
// code set, and that text with each byte from 0x80 up written as three bytes.
struct name_forms_t {
  std::string local;
  std::string escaped;
  bool usable = true;  // false: the escapes come from a 7-bit text
};
name_forms_t name_forms(std::string_view name);
bool is_7bit(std::string_view text);

}  // namespace qvr
