#include "cells.h"

#include <charconv>

#include "cell_sizes.h"
#include "msg.h"

namespace qvr {

namespace {

constexpr std::int32_t NARROW = 9;  // up to here sizes and spans are short
constexpr std::int32_t LONG_ID = 52;
constexpr std::uint64_t DAY = 86400;

void print_bytes(const report_column_t &column, std::uint64_t value, time_cells &, cell_text &out) {
  if (column.rc_width <= NARROW)
    rsc_size_text(value, out);
  else
    out.add_u64(value);
}

void print_kilobytes(const report_column_t &, std::uint64_t value, time_cells &, cell_text &out) {
  rsc_size_kb_text(value, out);
}

void print_time(const report_column_t &column, std::uint64_t value, time_cells &times,
                cell_text &out) {
  times.cell(static_cast<std::int64_t>(value), column.rc_width, out);
}

void print_duration(const report_column_t &column, std::uint64_t value, time_cells &,
                    cell_text &out) {
  if (column.rc_width > NARROW) return out.add_u64(value);
  out.add('P');
  out.add_u64(value / DAY);
  out.add('D');
}

void print_decimal(const report_column_t &, std::uint64_t value, time_cells &, cell_text &out) {
  out.add_u64(value);
}

using printer_t = void (*)(const report_column_t &, std::uint64_t, time_cells &, cell_text &);

// How each type prints a number; a type that is all text prints it in decimal.
constexpr printer_t printers[] = {
    print_decimal,    // no type
    print_decimal,    // RPT_STRING
    print_decimal,    // RPT_SIGNED
    print_decimal,    // RPT_UNSIGNED
    print_bytes,      // RPT_BYTES
    print_kilobytes,  // RPT_KILOBYTES
    print_time,       // RPT_TIME
    print_decimal,    // RPT_FLAGS
    print_decimal,    // RPT_LEVEL
    print_decimal,    // RPT_NUMBER
    print_decimal,    // RPT_ID
    print_duration,   // RPT_DURATION
};

bool has_record(const cell_row_t &row, cell_rule_t::record_t record) {
  switch (record) {
    case cell_rule_t::VOLUME:
      return row.vol != nullptr;
    case cell_rule_t::SAVE_SET:
      return row.ss != nullptr;
    case cell_rule_t::CLONE:
      return row.clone != nullptr;
    case cell_rule_t::FRAGMENT:
      return row.frag != nullptr;
    case cell_rule_t::NOTHING:
      break;
  }
  return true;
}

// A linear column holds its text; one that does not fit ends in "+" and a newline.
void stored_value(const report_column_t &column, cell_text &out, char *buffer) {
  if (!column.rc_value) return;
  out.add(*column.rc_value);
  if (out.size() < column.rc_value->size() && out.size() >= 2) {
    buffer[out.size() - 2] = '+';
    buffer[out.size() - 1] = '\n';
  }
}

}  // namespace

cell_renderer::cell_renderer(const cell_settings_t &settings, client_namer namer)
    : settings_(settings),
      times_(settings.iso_times, settings.old_forever),
      names_(namer),
      texts_{catalog_text(6093, "expired"), catalog_text(5925, "manual"),
             catalog_text(6094, "strange!")} {}

void rsc_id_text(std::int32_t width, const ksui &id, cell_text &out) {
  char text[KSUI_LONG_LENGTH + 1];
  ksui_form form = width > LONG_ID ? ksui_form::long_form : ksui_form::short_form;
  out.add(std::string_view(text, ksui_to_text(id, form, text)));
}

void cell_number_text(const report_column_t &column, std::uint64_t value, time_cells &times,
                      cell_text &out) {
  std::size_t type = column.rc_mr->mr_type;
  printers[type < std::size(printers) ? type : 0](column, value, times, out);
}

std::size_t cell_renderer::rpt_render(const report_column_t &column, const cell_row_t &row,
                                      char *buffer, std::size_t room) {
  cell_text out(buffer, room);
  if (settings_.linear) {
    stored_value(column, out, buffer);
    return out.size();
  }
  const cell_rule_t *rule = column.rc_mr == nullptr ? nullptr : cell_rule(column.rc_mr->mr_id);
  if (rule == nullptr) {
    out.add(texts_.strange);
    return out.size();
  }
  cell_use_t use{row, column, *this};
  if (!has_record(row, rule->needs)) {
    if (rule->without != nullptr)
      out.add(rule->without);
    else
      cell_number_text(column, 0, times_, out);
  } else if (rule->number != nullptr) {
    cell_number_text(column, rule->number(use), times_, out);
  } else if (rule->text != nullptr) {
    out.add(rule->text(use).substr(0, CELL_TEXT_LIMIT));
  } else {
    rule->made(use, out);
  }
  return out.size();
}

}  // namespace qvr
