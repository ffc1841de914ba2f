// The XML form of a report: escapes, document type and root.
#pragma once

#include <string>
#include <string_view>

#include "fields.h"
#include "row_text.h"
#include "rptout.h"

namespace qvr {

// Appends the value with its five special characters escaped; true when there were any.
bool xml_escape_value(std::string_view value, row_text &out);

// The root element of a run.
std::string rpt_xml_root_name(bool linear);

// Prints the prolog: declaration, document type with every long name of the table, and the start of
// the root element.
void rptout_write_dtd(rptout_t &out, std::string_view root, field_table table);

}  // namespace qvr
