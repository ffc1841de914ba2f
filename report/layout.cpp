#include "layout.h"

#include <algorithm>
#include <cstring>

#include "display_width.h"

namespace qvr {

namespace {

constexpr std::int32_t WIDEST_DOUBLED = 127;

struct type_layout_t {
  bool left;         // rows and fitting titles stand to the left
  std::size_t room;  // bytes kept free for a value
};

constexpr type_layout_t type_layouts[] = {
    {true, RPT_CELL_ROOM},  // a column without a field
    {true, RPT_CELL_ROOM},  // RPT_STRING
    {false, 32},            // RPT_SIGNED
    {false, 32},            // RPT_UNSIGNED
    {false, 32},            // RPT_BYTES
    {false, 32},            // RPT_KILOBYTES
    {false, 32},            // RPT_TIME
    {true, 32},             // RPT_FLAGS
    {false, 32},            // RPT_LEVEL
    {false, 32},            // RPT_NUMBER
    {true, 64},             // RPT_ID
    {false, 32},            // RPT_DURATION
};

const type_layout_t &layout_of(rpt_type type) {
  return type_layouts[type < std::size(type_layouts) ? std::size_t{type} : 0];
}

rpt_type type_of(const report_column_t &column) {
  return column.rc_mr != nullptr ? column.rc_mr->mr_type : rpt_type{};
}

// Blanks in front of a title, without what the line owes.
std::int64_t title_lead(rpt_type type, std::int64_t width, std::int64_t text_width) {
  std::int64_t lead = width - text_width;
  if (lead >= 0 && type == RPT_TIME) return lead >> 1;
  if (lead >= 0 && layout_of(type).left) return 0;
  return lead;
}

}  // namespace

std::size_t rpt_type_room(rpt_type type) {
  return layout_of(type).room;
}

void rpt_layout::start_line() {
  used_ = 0;
  pending_ = 0;
  first_ = true;
}

void rpt_layout::end_line(const report_column_t &column, std::size_t empty_lines,
                          rpt_line_fn line) {
  line({buffer_.data(), used_}, column, empty_lines);
  used_ = 0;
}

// A line that has run ahead does not get longer room by it.
bool rpt_layout::reaches_end(std::size_t room) const {
  return used_ + room + static_cast<std::size_t>(std::max(pending_, std::int64_t{0})) >=
         buffer_.size();
}

// Widths are small; the clamp keeps a line whose owed blanks alone exceed the buffer inside it.
std::size_t rpt_layout::blanks_that_fit(std::int64_t wanted, std::size_t behind) const {
  std::size_t left = buffer_.size() - 1 - used_;
  left -= std::min(left, behind);
  return wanted <= 0 ? 0 : std::min(static_cast<std::size_t>(wanted), left);
}

void rpt_layout::header(report_columns_t &columns, rpt_line_fn line) {
  start_line();
  for (report_column_t &column : columns) {
    if (rpt_is_newline(column)) {
      end_line(column, 0, line);
      start_line();
    } else if (rpt_is_space(column)) {
      pending_ += column.rc_width;
    } else {
      title(column, line);
    }
  }
}

void rpt_layout::title(report_column_t &column, rpt_line_fn line) {
  std::int64_t width = column.rc_width;
  if (reaches_end(static_cast<std::size_t>(std::max(width, std::int64_t{0})))) {
    end_line(column, 0, line);
  }
  std::string_view text = column.rc_mr != nullptr ? std::string_view(column.rc_mr->mr_title) : "";
  auto text_width = static_cast<std::int64_t>(i18n_strwidth(text));
  if (column.rc_mr != nullptr && !column.rc_mr->mr_short.empty() &&
      (width < text_width || pending_ < 0)) {
    text = column.rc_mr->mr_short;
    text_width = static_cast<std::int64_t>(i18n_strwidth(text));
  }
  std::int64_t pad = title_lead(type_of(column), width, text_width) + pending_;
  if (pad <= 0) pad = text.starts_with(' ') ? 0 : 1;
  std::size_t blanks = blanks_that_fit(pad, 0);
  std::memset(buffer_.data() + used_, ' ', blanks);
  used_ += blanks;
  std::size_t copied = std::min(text.size(), buffer_.size() - 1 - used_);
  std::memcpy(buffer_.data() + used_, text.data(), copied);
  used_ += copied;
  pending_ += width - (pad + text_width);
  while (column.rc_width > 0 && -pending_ >= column.rc_width && column.rc_width <= WIDEST_DOUBLED) {
    pending_ += column.rc_width;
    column.rc_width *= 2;
  }
}

void rpt_layout::row(const report_columns_t &columns, rpt_cell_fn cell, rpt_line_fn line) {
  start_line();
  for (const report_column_t &column : columns) {
    if (rpt_is_newline(column)) {
      end_line(column, column.rc_width > 1 ? static_cast<std::size_t>(column.rc_width) - 1 : 0,
               line);
      start_line();
    } else if (rpt_is_space(column)) {
      pending_ += column.rc_width;
    } else {
      value(column, cell, line);
    }
  }
}

void rpt_layout::value(const report_column_t &column, rpt_cell_fn cell, rpt_line_fn line) {
  const type_layout_t &type = layout_of(type_of(column));
  if (reaches_end(type.room + 2)) end_line(column, 0, line);
  std::size_t room, length;
  char *at;
  auto render = [&] {
    at = buffer_.data() + used_;
    *at = '\0';
    room = std::min(RPT_LINE_SIZE - 2 - used_, RPT_CELL_ROOM);
    length = cell(column, at, room);
  };
  render();
  if (room < RPT_CELL_ROOM && length + 1 >= room && used_ > 0) {
    // Wider than its type lets expect, and cut by the end of the buffer.
    end_line(column, 0, line);
    render();
  }
  std::int64_t width = column.rc_width;
  // Alignment counts bytes here and cells in what is carried on.
  std::int64_t pad = (type.left ? 0 : width - static_cast<std::int64_t>(length)) + pending_;
  if (pad <= 0 && !first_) pad = length != 0 && *at == ' ' ? 0 : 1;
  if (pad > 0) {
    std::size_t blanks = blanks_that_fit(pad, length);
    std::memmove(at + blanks, at, length);
    std::memset(at, ' ', blanks);
    used_ += blanks;
  }
  first_ = false;
  std::string_view text(buffer_.data() + used_, length);
  used_ += length;
  pending_ += width - (pad + static_cast<std::int64_t>(i18n_strwidth(text)));
}

}  // namespace qvr
