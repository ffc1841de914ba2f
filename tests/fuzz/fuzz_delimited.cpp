// A spec of -x and rows of values from the input: what a delimited line or a printf string prints
// can be told from the values, byte for byte.
#include <cstdio>
#include <cstring>
#include <vector>

#include "fuzz.h"
#include "report.h"

namespace {

constexpr std::string_view blanks = " \t\n\v\f\r";

std::string trimmed(std::string_view text) {
  std::size_t start = text.find_first_not_of(blanks);
  if (start == std::string_view::npos) return {};
  return std::string(text.substr(start, text.find_last_not_of(blanks) - start + 1));
}

std::string printed(qvr::rpt_form form, const std::string &spec,
                    const std::vector<std::string> &values) {
  char *text = nullptr;
  std::size_t size = 0;
  qvr::mr_t field;
  qvr::report_columns_t columns(values.size());
  for (auto &column : columns) column.rc_mr = &field;
  qvr::rpt_settings_t settings;
  settings.form = form;
  settings.spec = spec;
  settings.stream = open_memstream(&text, &size);
  {
    qvr::rpt_writer writer(settings, columns);
    std::size_t next = 0;
    writer.rpt_print_row([&](const qvr::report_column_t &, char *buffer, std::size_t room) {
      const std::string &value = values[next++];
      std::size_t length = std::min(value.size(), room - 1);
      std::memcpy(buffer, value.data(), length);
      return length;
    });
  }
  std::fclose(settings.stream);
  std::string result(text, size);
  std::free(text);
  return result;
}

}  // namespace

// A line for the argument of -x, then a line a value.
void fuzz(std::string_view input) {
  std::vector<std::string> lines(1);
  for (char c : input) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      // What the locale changes is another target's business.
      lines.back() += static_cast<char>(c & 0x7f);
    }
  }
  std::string spec;
  int index = qvr::rpt_check_spec(lines[0], spec);
  if (index != -1) {
    if (lines[0].at(static_cast<std::size_t>(index) - 1) != '%') std::abort();
    return;
  }
  std::vector<std::string> values(lines.begin() + 1, lines.end());
  std::string joined, text;
  std::vector<std::string> pieces;
  std::uint32_t conversions = qvr::rpt_split_printf(spec, pieces);
  for (std::size_t i = 0; i < values.size(); i++) {
    if (i != 0) joined += spec;
    joined += trimmed(values[i]);
    text += trimmed(values[i]);
  }
  if (!values.empty() && input.size() < 18000) {
    bool any = !text.empty();
    if (printed(qvr::RPT_FORM_DELIMITED, spec, values) != (any ? joined + "\n" : "")) std::abort();
  }
  if (conversions != values.size() || values.empty()) return;
  std::string expected;
  for (std::size_t at = 0, next = 0; at < spec.size(); at++) {
    if (spec[at] == '%' && at + 1 < spec.size()) {
      expected += spec[++at] == 's' ? trimmed(values[next++]) : "%";
    } else {
      expected += spec[at];
    }
  }
  if (printed(qvr::RPT_FORM_PRINTF, spec, values) != expected) std::abort();
}
