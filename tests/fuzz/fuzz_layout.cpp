// Columns and values from the input: a line never loses a byte of a value.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "layout.h"

namespace {

std::string without_blanks(std::string_view text) {
  std::string kept(text);
  std::erase_if(kept, [](char c) { return c == ' ' || c == '\n' || c == '\0'; });
  return kept;
}

}  // namespace

// Four bytes a column: type, width, length and first byte of its value, which then runs upward.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  constexpr std::size_t most_columns = 100;  // enough for lines of several buffers
  std::vector<qvr::mr_t> fields(std::min(size / 4, most_columns));
  std::vector<std::string> values(fields.size());
  qvr::report_columns_t columns(fields.size());
  std::string all;
  for (std::size_t i = 0; i < fields.size(); i++, data += 4) {
    qvr::mr_t &field = fields[i];
    field.mr_type = qvr::rpt_type{data[0] % 14u};
    if (data[0] >= 240) field.mr_id = data[0] % 2 == 0 ? qvr::RPT_SPACE_ID : qvr::RPT_NEWLINE_ID;
    columns[i].rc_mr = data[0] == 239 ? nullptr : &field;
    columns[i].rc_width = data[1];
    std::size_t length = data[2] < 200 ? data[2] : qvr::RPT_CELL_ROOM - 1 - (data[2] - 200u);
    values[i].resize(length);
    char *to = values[i].data();
    for (std::size_t j = 0; j < length; j++) {
      to[j] = static_cast<char>(data[3] + j % 97 + (j % 97 == 0 && data[3] == 0));
    }
    field.mr_title = values[i].substr(0, length % 40);
    field.mr_short = values[i].substr(0, length % 7);
    if (field.mr_id == 0) all += values[i];
  }
  qvr::rpt_layout layout;
  std::string printed;
  auto line = [&](std::string_view text, const qvr::report_column_t &, std::size_t empty_lines) {
    if (text.size() >= qvr::RPT_LINE_SIZE) std::abort();
    printed.append(text) += '\n';
    printed.append(empty_lines, '\n');
  };
  layout.header(columns, line);
  printed.clear();

  qvr::mr_t newline;
  newline.mr_id = qvr::RPT_NEWLINE_ID;
  columns.emplace_back().rc_mr = &newline;
  auto cell = [&](const qvr::report_column_t &column, char *buffer, std::size_t room) {
    const std::string &value = values[static_cast<std::size_t>(&column - columns.data())];
    std::size_t length = std::min(value.size(), room - 1);
    std::memcpy(buffer, value.data(), length);
    buffer[length] = '\0';
    return length;
  };
  layout.row(columns, cell, line);
  if (without_blanks(printed) != without_blanks(all)) std::abort();
  return 0;
}
