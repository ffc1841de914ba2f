// What a cell of a report shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "cell_names.h"
#include "cell_text.h"
#include "cell_times.h"
#include "columns.h"
#include "records.h"

namespace qvr {

// What a row is made of; any may be absent. `last` is the last fragment of the clone.
struct cell_row_t {
  const vol_t *vol = nullptr;
  ss_t *ss = nullptr;
  const clone_t *clone = nullptr;
  const frag_t *frag = nullptr;
  const frag_t *last = nullptr;
};

struct cell_settings_t {
  bool linear = false;       // -S, -L: a column holds its own value
  bool client_ids = false;   // -V: names are shown with the client ids that they hold
  bool iso_times = false;    // -I
  bool old_forever = false;  // 0x7fffffff is shown as the date that it once was
};

// Renders the cells of one run. It keeps texts that records borrow (see mapped_names), so it must
// outlive their last use. Main thread.
class cell_renderer {
 public:
  cell_renderer(const cell_settings_t &settings, client_namer namer);

  // Writes the cell's text, ended with a NUL, to a buffer of `room` bytes and returns its length;
  // what does not fit is cut.
  std::size_t rpt_render(const report_column_t &column, const cell_row_t &row, char *buffer,
                         std::size_t room);

  const cell_settings_t &settings() const { return settings_; }
  time_cells &times() { return times_; }
  std::string_view name_of(ss_t &ss) { return settings_.client_ids ? ss.name : names_.name_of(ss); }

  struct texts_t {
    std::string expired, manual, strange;
  };
  const texts_t &texts() const { return texts_; }

 private:
  cell_settings_t settings_;
  time_cells times_;
  mapped_names names_;
  texts_t texts_;
};

// A text of a record is cut here, in bytes.
inline constexpr std::size_t CELL_TEXT_LIMIT = 1024;

// A save set's or volume's identifier: the long form in a column wider than 52 cells.
void rsc_id_text(std::int32_t width, const ksui &id, cell_text &out);

// What a rule needs to make its value.
struct cell_use_t {
  const cell_row_t &row;
  const report_column_t &column;
  cell_renderer &renderer;
};

// How the cells of one field are made: by exactly one of the three functions, which runs when the
// row has the record that the rule needs. Without it the cell shows `without`, or, when that is
// null, the number 0 in the way of the field's type.
struct cell_rule_t {
  enum record_t : std::uint8_t { NOTHING, VOLUME, SAVE_SET, CLONE, FRAGMENT };
  std::int16_t code;
  record_t needs;
  const char *without;
  std::uint64_t (*number)(const cell_use_t &) = nullptr;  // sizes, counts, times, durations
  std::string_view (*text)(const cell_use_t &) = nullptr;
  void (*made)(const cell_use_t &, cell_text &) = nullptr;
};

// The rule of a field code; null for a code that no report shows.
const cell_rule_t *cell_rule(std::int16_t code);
std::span<const cell_rule_t> cell_rules();

// Prints a number as the column's type and width say.
void cell_number_text(const report_column_t &column, std::uint64_t value, time_cells &times,
                      cell_text &out);

}  // namespace qvr
