#include "rptout.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "export_spec.h"
#include "ks_wrappers.h"
#include "msg.h"
#include "text_convert.h"

namespace qvr {

namespace {

bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return text;
}

void value_lost() {
  msg_print(109666, 15000 + ENOMEM, MSG_STDERR, "Unable to log message to report output: %s\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(ENOMEM)}});
}

inline void emit_valid(rptout_t &out, std::string_view text, const report_column_t &column) {
  if (column.rc_mr == nullptr) {
    if (!out.spec) rptout_print(out, text);
    return;
  }
  if (out.spec) text = trimmed(text);
  std::size_t before = out.row.size();
  try {
    out.events->value(out, text, column);
  } catch (const std::bad_alloc &) {
    out.row.cut(before);
    value_lost();
  }
}

}  // namespace

rptout_t::rptout_t(std::optional<std::string> spec_, rpt_form form_, bool through_messages_,
                   std::FILE *stream_)
    : spec(std::move(spec_)),
      form(form_),
      events(&rptout_events(form_)),
      through_messages(through_messages_),
      stream(stream_) {
  if (form != RPT_FORM_NONE && !spec) spec.emplace();
  if (form == RPT_FORM_XML) exempted = text_exempt_fd(fileno(stream));
  if (form == RPT_FORM_PRINTF && spec) conversions = rpt_split_printf(*spec, pieces);
}

rptout_t::~rptout_t() {
  rptout_flush(*this);
  if (exempted) text_unexempt_fd(fileno(stream));
}

std::unique_ptr<rptout_t> rptout_create(std::optional<std::string> spec, rpt_form form,
                                        bool through_messages, std::FILE *stream) {
  return std::make_unique<rptout_t>(std::move(spec), form, through_messages, stream);
}

void rptout_emit(rptout_t &out, std::string_view text, const report_column_t &column) {
  if (!out.events->prints) return;
  out.row_has_content = true;
  if (text.data() == nullptr) text = column.rc_value ? std::string_view(*column.rc_value) : "";
  if (out.form != RPT_FORM_XML) return emit_valid(out, text, column);
  std::string store;
  emit_valid(out, utf8_made_valid(text, store), column);
}

void rptout_emit_title(rptout_t &out, const report_column_t &column) {
  if (!out.events->titles || column.rc_mr == nullptr) return;
  out.row_has_content = true;
  rptout_emit(out, out.spec ? column.rc_mr->mr_longname : column.rc_mr->mr_title, column);
}

void rptout_emit_linear(rptout_t &out, std::string_view text, const report_column_t &column) {
  if (!out.events->prints) return;
  if (text.data() == nullptr) {
    if (!column.rc_value) return;
    text = *column.rc_value;
  }
  if (column.rc_mr != nullptr) {
    rptout_print(out, column.rc_mr->mr_title);
    rptout_print(out, text);
    rptout_print(out, column.rc_mr->mr_short);
  } else if (!out.spec) {
    rptout_print(out, text);
  }
}

void rptout_print(rptout_t &out, std::string_view text) {
  if (!out.events->prints) return;
  out.row_has_content = true;
  std::string store;
  if (out.form == RPT_FORM_XML) text = utf8_made_valid(text, store);
  if (out.through_messages) text = rptout_message_part(text);
  out.row.append(text);
}

void rptout_end_row(rptout_t &out) {
  if (!out.row_has_content) return;
  out.events->end_row(out);
  rptout_flush(out);
  out.row_has_content = false;
  out.first = true;
  out.any_value = false;
  out.arguments = 0;
}

void rptout_flush(rptout_t &out) {
  if (out.row.empty()) return;
  text_to_file(out.stream, out.row.text());
  out.row.clear();
}

}  // namespace qvr
