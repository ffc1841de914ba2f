#include "report_output.h"

#include "client_identity.h"
#include "field_catalogue.h"

namespace qvr {

namespace {

// In the order of export_kind_t.
constexpr rpt_form forms[] = {RPT_FORM_NONE, RPT_FORM_DELIMITED, RPT_FORM_PRINTF, RPT_FORM_QUIET,
                              RPT_FORM_XML};

cell_settings_t cell_choices(const settings_t &settings, bool old_forever) {
  cell_settings_t cells;
  cells.linear = settings.linear();
  cells.client_ids = settings.very_verbose();
  cells.iso_times = settings.iso_times;
  cells.old_forever = old_forever;
  return cells;
}

rpt_settings_t writer_choices(const settings_t &settings) {
  rpt_settings_t writer;
  writer.form = forms[settings.export_kind];
  if (settings.export_kind != EXPORT_NONE) writer.spec = settings.export_spec;
  writer.linear = settings.linear();
  writer.table = settings.linear() ? linear_catalogue() : field_catalogue();
  return writer;
}

// The first fragment on the volume, with its clone.
bool find_on_volume(const vol_t &vol, const ss_t &ss, cell_row_t &row) {
  for (const clone_t &clone : ss.copies()) {
    for (const frag_t &frag : clone.fragments()) {
      if (ksui_cmp(frag.volid, vol.volid) != 0) continue;
      row.clone = &clone;
      row.frag = &frag;
      return true;
    }
  }
  return false;
}

}  // namespace

report_output::report_output(const settings_t &settings, bool old_forever,
                             report_columns_t &columns)
    : cells_(cell_choices(settings, old_forever), get_client_name_from_id) {
  rpt_settings_t choices = writer_choices(settings);
  if (settings.linear()) {
    listing_.emplace(choices.table, settings.long_linear, settings.export_kind != EXPORT_NONE,
                     cells_);
    writer_ = std::make_unique<rpt_writer>(choices, listing_->report());
  } else {
    writer_ = std::make_unique<rpt_writer>(choices, columns);
  }
}

void report_output::header() {
  writer_->rpt_print_header();
  printed_ = true;
}

void report_output::row(const vol_t *vol, ss_t *ss, const clone_t *clone, const frag_t *frag,
                        bool search) {
  cell_row_t row{vol, ss, clone, frag, nullptr};
  bool found = true;
  if (search && vol != nullptr && ss != nullptr && clone == nullptr && frag == nullptr) {
    found = find_on_volume(*vol, *ss, row);
  }
  if (row.clone != nullptr && row.frag != nullptr) {
    row.last = &row.clone->frags[row.clone->nfrags - 1];
  }
  auto cell = [&](const report_column_t &column, char *buffer, std::size_t room) {
    return cells_.rpt_render(column, row, buffer, room);
  };
  auto is_found = [found] { return found; };
  writer_->rpt_print_row(cell, is_found);
}

void report_output::save_set(ss_t &ss, const vol_t *vol) {
  auto print = [&] { row(vol, &ss, nullptr, nullptr, true); };
  listing_->long_listing_fill(ss, print);
  print();
  printed_ = true;
}

}  // namespace qvr
