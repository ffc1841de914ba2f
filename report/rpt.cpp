#include "rpt.h"

#include <algorithm>
#include <cerrno>

#include "debug_words.h"

namespace qvr {

rpt_t rpt_create(field_table table) {
  rpt_t report;
  report.table = table;
  return report;
}

report_column_t *rpt_find_column(rpt_t &report, std::string_view keyword) {
  if (keyword.data() == nullptr) return nullptr;
  for (report_column_t &column : report.columns) {
    if (column.rc_mr != nullptr && column.rc_mr->mr_key == keyword) return &column;
  }
  return nullptr;
}

int rpt_add_value(rpt_t &report, std::string_view keyword, std::string_view text) {
  bool named = keyword.data() != nullptr;
  report_column_t *column = rpt_find_column(report, keyword);
  if (column == nullptr) {
    if (named && report.locked) {
      KS_DEBUG(1, "cannot add column \"%s\" to report after its width has been locked\n",
               std::string(keyword).c_str());
      errno = EACCES;
      return -1;
    }
    column = &report.columns.emplace_back();
    if (named) column->rc_mr = rptdata_find(report.table, keyword);
  }
  if (text.data() == nullptr) {
    column->rc_value.reset();
  } else {
    column->rc_value.emplace(text);
  }
  column->rc_width = static_cast<std::int32_t>(text.size());
  return 0;
}

int rpt_add_text(rpt_t &report, std::string_view text) {
  return rpt_add_value(report, {}, text);
}

void rpt_clear_values(rpt_t &report) {
  std::erase_if(report.columns,
                [](const report_column_t &column) { return column.rc_mr == nullptr; });
  for (report_column_t &column : report.columns) column.rc_value.reset();
}

bool rpt_lock_width(rpt_t &report) {
  if (report.locked) return false;
  report.locked = true;
  return true;
}

}  // namespace qvr
