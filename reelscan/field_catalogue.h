// The words of the report language, and those of the long linear record.
#pragma once

#include "fields.h"

namespace qvr {

// The words of queries, of reports and of the history report, in their order: the field behind
// `savetime` is `nsavetime`. The first call translates the texts by the message catalogue; later
// calls give the same table. Never fails; any thread.
field_table field_catalogue();

// The record of a linear report. The codes are 0: a field of it is known by its place and keyword.
field_table linear_catalogue();

}  // namespace qvr
