// The plan of a report: what it needs, the one request that narrows the result most, and what is
// left to test here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "attrlist.h"
#include "columns.h"
#include "constraint.h"
#include "match.h"
#include "queries.h"

namespace qvr {

// What the command line says to a plan.
struct plan_facts_t {
  bool linear = false;     // -S, -L
  bool bootstrap = false;  // -B: the columns come from the rows
  bool media_position_asked = false;
  std::optional<std::string> sort_order = std::nullopt;
  std::int64_t now = 0;  // seconds since 1970
};

// What the columns and constraints of a report ask for.
struct needs_t {
  bool volume = false;           // a volume column
  bool save_set = false;         // a save set column
  bool detail = false;           // clones and fragments of the save sets
  bool fragment_rows = false;    // a column is per fragment, or summed over a volume
  bool each_fragment = false;    // a column is truly per fragment
  bool clone_test = false;       // report or query has a clone-level field
  bool ss_constraint = false;    // a constraint has an odd code
  bool savesets_column = false;  // counts of save sets on volumes are shown
};

enum class request_kind {
  vols_name,
  vols_location,
  vols_family,
  vols_pool,
  vols_barcode,
  vol_id_list,
  ss_page,   // save sets by attributes, paged
  ss_query,  // save sets by name
  ss_ids,
  ss_times,
};

// A request with its arguments; what is absent is not sent.
struct plan_request_t {
  request_kind kind = request_kind::vols_name;
  bool full = false;

  std::optional<std::string> client, name;
  attrlist attrs, filter;
  std::optional<std::int64_t> from, to;  // save times, ends included
  std::int32_t level = 0;                // level limit plus 1; 0: any
  ksui ssid;                             // invalid: the query's text is no identifier
  std::vector<std::string> clients;      // of ss_times, one request each; none: one for all

  std::optional<std::string> location, family, type, pool, volume, barcode;
  ksui volid;
  std::uint32_t flag_mask = 0, flag_value = 0;
};

// How the records become output.
enum class plan_road {
  nothing,          // no column needs data
  volumes_alone,    // one row a volume, no save sets
  fetch_by_volume,  // save sets volume by volume, printed in that order
  fetch_of_rows,    // save sets volume by volume, sorted as one list
  key_query,        // save sets by one request
};

struct plan_t {
  needs_t needs;
  std::string sort_order;
  int sort_sign = 1;
  bool count_report = false;  // save sets are only counted

  int plan_key = 0;  // field code, 0 for none
  int score = 0;     // of the request by attributes
  plan_request_t request;
  plan_road road = plan_road::nothing;

  std::vector<bool> carried;  // constraints that the request carries in full
  left_out_t left_out;        // those that are not tested again

  // Rows (see rows.h).
  bool per_fragment = false;   // a volume of a save set may have several rows
  bool keep_detail = false;    // rows carry their clone and fragment
  bool volumes_needed = true;  // without it there are no rows: the save sets print by themselves
};

// Makes the plan. It may change the constraints: an exact save time becomes `nsavetime`, an exact
// "level=full" takes every level up to full.
plan_t make_plan(const plan_facts_t &facts, query_constraints_t &constraints,
                 const report_columns_t &columns);

// The plan for a person, a line each: needs, key and score, request, what the server applies and
// what is left to test.
std::vector<std::string> plan_lines(const plan_t &plan, const query_constraints_t &constraints);

}  // namespace qvr
