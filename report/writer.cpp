#include "writer.h"

#include "xml_report.h"

namespace qvr {

namespace {

constexpr std::size_t LEAST_WITH_HEADER = 3;
constexpr std::size_t VALUE_ROOM = RPT_LINE_SIZE - 2;

static_assert(VALUE_ROOM <= RPT_EXPORT_ROOM);

}  // namespace

rpt_writer::rpt_writer(const rpt_settings_t &settings, report_columns_t &columns)
    : settings_(settings),
      columns_(&columns),
      out_(rptout_create(settings.spec, settings.form, settings.through_messages, settings.stream)),
      layout_(std::make_unique<rpt_layout>()),
      value_(new char[RPT_LINE_SIZE]) {}

rpt_writer::rpt_writer(const rpt_settings_t &settings, rpt_t &report)
    : rpt_writer(settings, report.columns) {
  report_ = &report;
}

void rpt_writer::rpt_print_header() {
  if (header_printed_) return;
  header_printed_ = true;
  if (settings_.form == RPT_FORM_XML) return rpt_print_prolog();
  if (columns().size() < LEAST_WITH_HEADER) return;
  if (exported()) {
    export_header();
  } else if (!settings_.linear) {
    plain_header();
  }
}

void rpt_writer::export_header() {
  for (const report_column_t &column : columns()) {
    if (!rpt_is_space(column) && !rpt_is_newline(column)) rptout_emit_title(*out_, column);
  }
  rptout_end_row(*out_);
}

void rpt_writer::plain_header() {
  auto line = [&](std::string_view text, const report_column_t &column, std::size_t) {
    rptout_emit(*out_, text, column);
  };
  layout_->header(columns(), line);
  rptout_end_row(*out_);
}

void rpt_writer::rpt_print_row(rpt_cell_fn cell, rpt_found_fn found) {
  if (report_ != nullptr && rpt_lock_width(*report_)) rpt_print_header();
  if (!found || found()) {
    if (exported() || settings_.linear) {
      stored_row(cell);
    } else {
      plain_row(cell);
    }
    rptout_end_row(*out_);
  }
  if (report_ != nullptr) rpt_clear_values(*report_);
}

void rpt_writer::plain_row(rpt_cell_fn cell) {
  auto line = [&](std::string_view text, const report_column_t &column, std::size_t empty_lines) {
    rptout_emit(*out_, text, column);
    out_->row.append(empty_lines, '\n');
  };
  layout_->row(columns(), cell, line);
}

void rpt_writer::stored_row(rpt_cell_fn cell) {
  for (const report_column_t &column : columns()) {
    if (rpt_is_space(column) || rpt_is_newline(column)) continue;
    if (!exported() && !column.rc_value) continue;
    value_[0] = '\0';
    std::string_view text(value_.get(), cell(column, value_.get(), VALUE_ROOM));
    if (exported()) {
      rptout_emit(*out_, text, column);
    } else {
      rptout_emit_linear(*out_, text, column);
    }
  }
}

void rpt_writer::rpt_print_prolog() {
  rptout_write_dtd(*out_, rpt_xml_root_name(settings_.linear), settings_.table);
}

void rpt_writer::rpt_print_trailer() {
  if (settings_.form != RPT_FORM_XML) return;
  out_->row.append("</").append(rpt_xml_root_name(settings_.linear)).append(">\n");
  rptout_flush(*out_);
}

void rpt_close_columns(report_columns_t &columns, const mr_t &newline) {
  if (columns.empty() || rpt_is_newline(columns.back())) return;
  report_column_t &last = columns.emplace_back();
  last.rc_mr = &newline;
  last.rc_width = 1;
}

}  // namespace qvr
