#include "history_row.h"

#include <strings.h>

#include <cstdlib>

#include "dates.h"

namespace qvr {

namespace {

constexpr std::int32_t NARROW = 9;        // up to here times print as they are stored
constexpr std::size_t VALUE_ROOM = 1025;  // of a save set field

bool is_property(const hist &record, const char *name) {
  return strcasecmp(std::string(record.property).c_str(), name) == 0;
}

// A stored time shows as a date where the column has room for one or the number means forever.
bool shows_date(const report_column_t &column, std::int64_t time) {
  return time >= 0 && (time_is_forever(time) || column.rc_width > NARROW);
}

void add_time(const report_column_t &column, std::int64_t time, cell_renderer &cells,
              cell_text &out) {
  if (shows_date(column, time))
    cells.times().cell(time, column.rc_width, out);
  else
    out.add_i64(time);
}

// Old and new values are texts, but for the two retentions, which are times.
void add_value(const report_column_t &column, const hist &record, std::string_view value,
               cell_renderer &cells, cell_text &out) {
  bool is_time = is_property(record, "ssretent") || is_property(record, "clretent");
  std::int64_t time = is_time ? std::atoll(std::string(value).c_str()) : -1;
  if (shows_date(column, time))
    cells.times().cell(time, column.rc_width, out);
  else
    out.add(value);
}

void add_operation(const report_column_t &column, const hist &record, cell_text &out) {
  static constexpr std::string_view words[] = {"create", "update", "delete"};
  bool known = record.operation >= 0 && record.operation < 3;
  if (column.rc_width >= 6) {
    out.add(known ? words[record.operation] : "undef");
  } else if (known) {
    out.add_i64(record.operation);
  } else if (column.rc_width == 5) {
    out.add("undef");
  }
}

struct field_use_t {
  const report_column_t &column;
  const hist &record;
  cell_renderer &cells;
};

// The fields that a change record has by itself.
struct history_cell_t {
  std::int16_t code;
  void (*add)(const field_use_t &, cell_text &);
};
constexpr history_cell_t HISTORY_CELLS[] = {
    {11, [](const field_use_t &use, cell_text &out) { out.add_i64(use.record.hist_clone); }},
    {107, [](const field_use_t &use,
             cell_text &out) { add_time(use.column, use.record.timestamp, use.cells, out); }},
    {111, [](const field_use_t &use, cell_text &out) { out.add(use.record.user); }},
    {113, [](const field_use_t &use, cell_text &out) { out.add(use.record.property); }},
    {115,
     [](const field_use_t &use, cell_text &out) {
       add_value(use.column, use.record, use.record.oldvalue, use.cells, out);
     }},
    {117,
     [](const field_use_t &use, cell_text &out) {
       add_value(use.column, use.record, use.record.newvalue, use.cells, out);
     }},
    {119, [](const field_use_t &use,
             cell_text &out) { add_time(use.column, use.record.validity, use.cells, out); }},
    {121,
     [](const field_use_t &use, cell_text &out) { add_operation(use.column, use.record, out); }},
    {173, [](const field_use_t &use,
             cell_text &out) { rsc_id_text(use.column.rc_width, use.record.hist_id, out); }},
};

bool is_save_set_field(std::int16_t code) {
  return code > 0 && code % 2 == 1 && code < 105;
}

void add_save_set_field(const history_lines_t &lines, const report_column_t &column,
                        const hist &record, cell_text &out) {
  ss_t *ss = lines.fetched ? lines.fetched->find(record.hist_id) : nullptr;
  if (ss == nullptr && lines.rebuilt) ss = lines.rebuilt->find(record.hist_id);
  if (ss == nullptr) return;
  cell_row_t row;
  row.ss = ss;
  for (const clone_t &clone : ss->copies()) {
    if (record.hist_clone != 0 && clone.cloneid == record.hist_clone) row.clone = &clone;
  }
  char value[VALUE_ROOM];
  value[0] = '\0';
  out.add({value, lines.cells.rpt_render(column, row, value, sizeof value)});
}

// Adds the field of one column; false when the column has none here.
bool add_field(const history_lines_t &lines, const report_column_t &column, const hist &record,
               cell_text &out) {
  std::int16_t code = column.rc_mr->mr_id;
  for (const history_cell_t &cell : HISTORY_CELLS) {
    if (cell.code != code) continue;
    cell.add({column, record, lines.cells}, out);
    return true;
  }
  if (!is_save_set_field(code)) return false;
  add_save_set_field(lines, column, record, out);
  return true;
}

// Of the deletion of a save set only the line for its id is shown.
bool is_shown(const hist &record) {
  return record.operation != HIST_DELETE || record.hist_clone != 0 || is_property(record, "ssid");
}

// A line ends in a newline in the place of its last tab.
std::string ended(std::string_view line) {
  std::string text(line);
  if (!text.empty() && text.back() == '\t')
    text.pop_back();
  else if (text.size() == HISTORY_LINE_SIZE - 1)
    text.pop_back();
  text += '\n';
  return text;
}

}  // namespace

std::string history_header(const report_columns_t &columns) {
  char buffer[HISTORY_LINE_SIZE];
  cell_text line(buffer, sizeof buffer);
  for (const report_column_t &column : columns) {
    line.add(column.rc_mr->mr_title);
    line.add('\t');
  }
  return ended(line.text());
}

std::string history_line(const history_lines_t &lines, const hist &record) {
  if (!is_shown(record)) return {};
  char buffer[HISTORY_LINE_SIZE];
  cell_text line(buffer, sizeof buffer);
  for (const report_column_t &column : lines.columns) {
    if (add_field(lines, column, record, line)) line.add('\t');
  }
  return ended(line.text());
}

}  // namespace qvr
