// The query language: which records a report is about.
#pragma once

#include <string>
#include <string_view>

#include "columns.h"
#include "constraint.h"

namespace qvr {

// How the client in the name of an index save set becomes a client id; any other name stays.
using name_to_id_t = std::string (*)(std::string_view name);

// Reads a list of constraints, as behind -q, into `list`. Null, or the text of the refusal, which
// stands until the next one; what was read before it stays in the list. A null or empty text adds
// nothing. Main thread.
const char *parse_query_spec(std::string_view text, query_constraints_t &list,
                             name_to_id_t name_to_id);

// The same for a value that stands for a whole constraint: 'c' a client, 'N' a name, 't' and 'T'
// times, ' ' a volume.
const char *parse_query_shortcut(char option, std::string_view value, query_constraints_t &list,
                                 name_to_id_t name_to_id);

// Where a field may stand: in a history query and its report, in all others, or in both.
enum class field_place { reports_alone, history_alone, anywhere };
field_place history_field(std::string_view key);

// Prints a message for every constraint and column that does not belong to a history query, or, for
// any other report, that does. False when there was one.
bool validate_fields(bool history, const query_constraints_t &constraints,
                     const report_columns_t &columns);

}  // namespace qvr
