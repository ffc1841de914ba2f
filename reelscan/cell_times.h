// Times in cells.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cell_text.h"

namespace qvr {

// Makes the texts of times, with the run's choices. A million rows hold few distinct days, so the
// text of a local day is kept: a time that falls on it needs neither localtime nor strftime. One
// thread; the zone and the locale of the process must not change while it lives.
class time_cells {
 public:
  // `iso`: the long form is ISO 8601. `old_forever`: 0x7fffffff is shown as the date that it once
  // was.
  time_cells(bool iso, bool old_forever);

  // Date and time of day.
  void rsc_long_time(std::int64_t time, cell_text &out);
  // The date alone.
  void rsc_short_date(std::int64_t time, cell_text &out);
  // What fits the width: the long form, date with hours and minutes, or the date, whatever its
  // length.
  void cell(std::int64_t time, std::int32_t width, cell_text &out);

 private:
  struct hour_t {
    std::int64_t number = INT64_MIN;  // of hours since 1970
    std::int64_t offset = 0;          // seconds east of UTC all through that hour
    bool steady = false;              // false: the offset changes, or there is no local time
  };
  struct day_t {
    std::int64_t number = INT64_MIN;  // of local days since 1970
    std::uint8_t size = 0;            // 0: the date does not fit
    char date[47] = {};
  };

  // How the locale tells the time of day.
  enum class clock_t : std::uint8_t { other, plain, half_days };

  bool local_seconds(std::int64_t time, std::int64_t &local);
  const day_t *day_of(std::int64_t time, std::int64_t local_day);
  void read_clock();
  void add_clock(std::int64_t second_of_day, cell_text &out) const;
  // The forms of a time above zero that is not forever; false when the caches do not serve.
  bool quick_long(std::int64_t time, cell_text &out);
  bool quick_date(std::int64_t time, cell_text &out);
  bool quick_cell(std::int64_t time, std::int32_t width, cell_text &out);
  void iso_time(std::int64_t time, cell_text &out);
  void stepped(std::int64_t time, std::int32_t width, cell_text &out);
  bool is_shown_old_forever(std::int64_t time) const;

  bool iso_;
  bool old_forever_;
  clock_t clock_ = clock_t::other;
  std::int32_t clock_size_ = 0;  // bytes of that time of day
  std::string_view halves_[2];   // of a clock of half days: its words
  std::string undefined_, undef_;
  std::vector<hour_t> hours_;
  std::vector<day_t> days_;
};

}  // namespace qvr
