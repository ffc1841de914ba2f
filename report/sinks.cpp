// What each form of output does with a value and with the end of a row.
#include <cstdlib>

#include "msg.h"
#include "rptout.h"
#include "xml_report.h"

namespace qvr {

namespace {

// Plain text: lines.

void plain_value(rptout_t &out, std::string_view text, const report_column_t &) {
  out.row.append(text).append('\n');
}

void plain_end(rptout_t &) {}

// Delimited: one line a row; empty values keep their place, a row of nothing else goes.

void delimited_value(rptout_t &out, std::string_view text, const report_column_t &) {
  std::size_t limit = RPT_MESSAGE_MAX;
  if (!out.first) {
    std::string_view delimiter = rptout_message_part(*out.spec);
    out.row.append(delimiter);
    limit -= delimiter.size();
  }
  out.first = false;
  out.any_value = out.any_value || !text.empty();
  out.row.append(rptout_message_part(text, limit));
}

void delimited_end(rptout_t &out) {
  if (out.any_value) {
    out.row.append('\n');
  } else {
    out.row.clear();
  }
}

// Printf: a value completes the piece of the format that ends in its conversion.

// A piece of the format without its "%s"; "%%" prints one.
void add_piece(row_text &row, std::string_view piece) {
  for (std::size_t at = 0; at < piece.size(); at++) {
    if (piece[at] == '%' && at + 1 < piece.size()) {
      at++;
      if (piece[at] != '%') return;
    }
    row.append(piece[at]);
  }
}

void printf_value(rptout_t &out, std::string_view text, const report_column_t &) {
  if (out.arguments < out.conversions) {
    add_piece(out.row, out.pieces[out.arguments]);
    out.row.append(text);
  }
  out.arguments++;
}

[[noreturn]] void mismatch_exit(rptout_t &out) {
  out.row.clear();
  std::fflush(out.stream);
  // Records may still be on their way in other threads: what these use must not go under them.
  std::_Exit(1);
}

void printf_end(rptout_t &out) {
  std::string have = std::to_string(out.arguments), want = std::to_string(out.conversions);
  if (out.conversions > out.arguments) {
    msg_print(126, 55000, MSG_STDERR, "-x printf-spec has %d args, but query result has only %d\n",
              {{MSG_ARG_INT, want}, {MSG_ARG_INT, have}});
    mismatch_exit(out);
  }
  if (out.conversions < out.arguments) {
    msg_print(127, 55000, MSG_STDERR, "query result has %d args, but -x printf-spec has only %d\n",
              {{MSG_ARG_INT, have}, {MSG_ARG_INT, want}});
    mismatch_exit(out);
  }
  if (out.pieces.size() > out.conversions) add_piece(out.row, out.pieces.back());
}

// Quiet: nothing.

void quiet_value(rptout_t &, std::string_view, const report_column_t &) {}

void quiet_end(rptout_t &) {}

// XML: an element a value that is not empty.

void xml_value(rptout_t &out, std::string_view text, const report_column_t &column) {
  if (text.empty()) return;
  if (out.first) {
    out.first = false;
    out.row.append("<result>\n");
    out.result_open = true;
  }
  const std::string &name = column.rc_mr->mr_longname;
  out.row.append("<").append(name).append(">");
  xml_escape_value(text, out.row);
  out.row.append("</").append(name).append(">\n");
}

void xml_end(rptout_t &out) {
  if (!out.result_open) return;
  out.result_open = false;
  out.row.append("</result>\n");
}

constexpr rptout_events_t forms[] = {
    {plain_value, plain_end, true, true},          // RPT_FORM_NONE
    {delimited_value, delimited_end, true, true},  // RPT_FORM_DELIMITED
    {printf_value, printf_end, true, true},        // RPT_FORM_PRINTF
    {quiet_value, quiet_end, false, false},        // RPT_FORM_QUIET
    {xml_value, xml_end, true, false},             // RPT_FORM_XML
};

}  // namespace

const rptout_events_t &rptout_events(rpt_form form) {
  return forms[form];
}

}  // namespace qvr
