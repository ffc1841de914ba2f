// The writer of one report: header, rows and trailer of a run, over one sink.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "columns.h"
#include "layout.h"
#include "rpt.h"
#include "rptout.h"

namespace qvr {

// What a run has decided before its report begins.
struct rpt_settings_t {
  rpt_form form = RPT_FORM_NONE;
  std::optional<std::string> spec;  // the unescaped parameter; there exactly with -x
  bool linear = false;              // -S, -L, the summary
  bool through_messages = false;    // see rptout_create()
  field_table table;                // of the run: what an XML document type lists
  std::FILE *stream = stdout;
};

// Whether there is a row to print; asked once a row.
using rpt_found_fn = function_view<bool()>;

// Used by one thread. A tabular report has its columns from outside, a linear one its rpt_t; either
// outlives the writer. Columns may change until the header is printed.
class rpt_writer {
 public:
  rpt_writer(const rpt_settings_t &settings, report_columns_t &columns);
  rpt_writer(const rpt_settings_t &settings, rpt_t &report);

  // Prints the header, or the prolog of the XML form, the first time that it is called. It comes
  // before the first row; a report of fewer than three columns, or a linear one without -x, prints
  // none, and counts as printed all the same. Column widths may grow.
  void rpt_print_header();
  bool header_printed() const { return header_printed_; }

  // Prints one row, each cell with the text that `cell` makes. A linear report prints its stored
  // values through `cell`, locks its columns and prints its header in front of its first row, and
  // has its values cleared. `found` is asked behind that header; when it says no, nothing is
  // printed.
  void rpt_print_row(rpt_cell_fn cell, rpt_found_fn found = nullptr);

  // The start of an XML document with its document type, also for a report that lays out its own
  // header; the end of it. The trailer prints nothing in other forms.
  void rpt_print_prolog();
  void rpt_print_trailer();

  bool exported() const { return settings_.spec.has_value(); }
  const rpt_settings_t &settings() const { return settings_; }
  rptout_t &out() { return *out_; }

 private:
  report_columns_t &columns() { return report_ != nullptr ? report_->columns : *columns_; }
  void plain_header();
  void export_header();
  void plain_row(rpt_cell_fn cell);
  void stored_row(rpt_cell_fn cell);

  rpt_settings_t settings_;
  report_columns_t *columns_ = nullptr;
  rpt_t *report_ = nullptr;  // linear
  std::unique_ptr<rptout_t> out_;
  std::unique_ptr<rpt_layout> layout_;
  std::unique_ptr<char[]> value_;  // a cell of an export or linear row
  bool header_printed_ = false;
};

// Appends a newline column of width 1 to a tabular report that has columns and does not end in one.
// `newline` is the field of that name.
void rpt_close_columns(report_columns_t &columns, const mr_t &newline);

}  // namespace qvr
