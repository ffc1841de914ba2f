// The linear record of a save set: its lines, its attributes, its clones and fragments.
#pragma once

#include <string>

#include "cells.h"
#include "function_view.h"
#include "records.h"
#include "rpt.h"

namespace qvr {

// One for a run. The first save set decides which columns there are and how they are ordered. Main
// thread.
class long_listing {
 public:
  // `ids_in_full`: the first line shows both forms of the identifier. `exported`: the attributes
  // stand on one line.
  long_listing(field_table table, bool ids_in_full, bool exported, cell_renderer &cells);

  rpt_t &report() { return report_; }
  // Sets the values of one save set. `print` prints the row so far, which clears its values; it is
  // called for all rows but the last, which is left to the caller.
  void long_listing_fill(const ss_t &ss, function_view<void()> print);
  // Sets the attribute text.
  void long_listing_attrs(const packed_attrs &attrs);

 private:
  void set(std::string_view keyword, std::string_view text);
  void set_padded(std::string_view keyword, int width, std::string_view text);
  std::string long_time(std::int64_t time);
  std::string short_date(std::int64_t time);
  void fill_save_set(const ss_t &ss);
  void register_rest(const ss_t &ss);
  void fill_clone(const ss_t &ss, const clone_t &clone, std::uint32_t number);
  void fill_fragment(const frag_t &frag);

  rpt_t report_;
  bool ids_in_full_;
  bool exported_;
  cell_renderer &cells_;
  std::string attribute_text_;
};

}  // namespace qvr
