#include "report_spec.h"

#include "field_catalogue.h"
#include "spec_reader.h"

namespace qvr {

namespace {

// Reads what stands in and behind the parentheses, up to a comma or the end.
const char *parse_width(spec_reader &in, const mr_t &field, std::int32_t &width) {
  constexpr std::uint64_t widest = 255;
  std::uint64_t number = 0;
  in.skip_blanks();
  if (!number_of(in.take_digits(), widest, number) || number == 0) {
    return spec_error(6109, "column width of `%s' is invalid", {{MSG_ARG_TEXT, field.mr_key}});
  }
  width = static_cast<std::int32_t>(number);
  in.skip_blanks();
  if (!in.take(')')) {
    return spec_error(6110, "missing close parenthesis after report constraint `%s'",
                      {{MSG_ARG_TEXT, field.mr_key}});
  }
  in.skip_blanks();
  if (!in.at_separator()) {
    return spec_error(6111, "missing comma after report constraint `%s'",
                      {{MSG_ARG_TEXT, field.mr_key}});
  }
  return nullptr;
}

const char *parse_column(spec_reader &in, report_columns_t &columns) {
  std::string_view word = trim_blanks(in.take_until("(,"));
  const mr_t *field = rptdata_find(field_catalogue(), word);
  if (field == nullptr) {
    return spec_error(32356, "unknown report constraint: %.*s",
                      {{MSG_ARG_INT, std::to_string(word.size())}, {MSG_ARG_TEXT, word}});
  }
  if (!field->has_short) {
    return spec_error(6108, "constraint `%s' is only valid for queries",
                      {{MSG_ARG_TEXT, field->mr_key}});
  }
  report_column_t column;
  column.rc_mr = field;
  column.rc_width = static_cast<std::int32_t>(field->mr_width);
  if (in.take('(')) {
    if (const char *error = parse_width(in, *field, column.rc_width)) return error;
  }
  columns.push_back(std::move(column));
  return nullptr;
}

}  // namespace

const char *parse_report_spec(std::string_view text, report_columns_t &columns) {
  if (text.data() == nullptr) return nullptr;
  spec_reader in(text);
  do {
    in.skip_blanks();
    if (const char *error = parse_column(in, columns)) return error;
  } while (in.take(','));
  return nullptr;
}

void close_report(report_columns_t &columns) {
  if (columns.empty() || columns.back().rc_mr->mr_id == RPT_NEWLINE_ID) return;
  report_column_t column;
  column.rc_mr = rptdata_find(field_catalogue(), "newline");
  column.rc_width = 1;
  columns.push_back(std::move(column));
}

}  // namespace qvr
