// What is asked of the media database, and how it is shown: the languages of the command line,
// read.
#pragma once

#include <optional>
#include <string>

#include "attrlist.h"
#include "columns.h"
#include "constraint.h"
#include "resdb.h"

namespace qvr {

struct request_t {
  query_constraints_t query_constraints;
  report_columns_t report_columns;
  attrlist attr_constraints;  // a name with a leading "!" must not be carried
  // Letters of "celmnotR"; absent: the report takes its own default.
  std::optional<std::string> sort_order;
  bool old_forever_shown = false;  // 0x7fffffff prints as the date that it once was
  std::string server;              // of the media database and of the resources
  resdb_t *resources = nullptr;    // of that server, open while the report runs; borrowed
};

}  // namespace qvr
