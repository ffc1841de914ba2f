// What the command line said, as plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

// The form of an export, from -x.
enum export_kind_t : int {
  EXPORT_NONE = 0,
  EXPORT_DELIMITED = 1,
  EXPORT_PRINTF = 2,
  EXPORT_QUOTED = 3,
  EXPORT_XML = 4,
};

// Filled by the option scan and constant from then on. A counter counts its option; what it means
// to a report stands where it is read. Views borrow from the argument vector.
struct settings_t {
  std::string program = "reelscan";  // for the usage text

  std::int32_t query_count = 0;    // -a -B -c -m -N -o -q -t: with none, the default time applies
  std::int32_t all_count = 0;      // -a -k
  std::int32_t vm_count = 0;       // -k
  std::int32_t media_count = 0;    // -m
  std::int32_t plain_count = 0;    // -p
  std::int32_t verbose_count = 0;  // -v
  std::int32_t very_verbose_count = 0;  // -V
  std::int32_t summary_count = 0;       // -X
  std::int32_t bootstrap_count = 0;     // -B
  std::int32_t linear_count = 0;        // -S -L
  std::int32_t client_count = 0;        // -c
  std::int32_t query_spec_count = 0;    // -q
  std::int32_t end_time_count = 0;      // -T
  std::int32_t attr_spec_count = 0;     // -A
  std::int32_t history = 0;             // -h
  std::int32_t client_id_count = 0;     // -C
  std::int32_t volume_id_count = 0;     // -O
  std::int32_t report_given = 0;        // 1 with -r
  int debug_level = 0;                  // -D

  bool long_linear = false;           // -L
  bool media_position_asked = false;  // a -r text holds "mediafile" or "mediarec"
  bool client_alias_match = true;     // false with -l: names of clients compare by text alone
  bool iso_times = false;             // -I

  std::optional<std::string> server_name;  // -s
  std::optional<std::string> sort_order;   // -o
  export_kind_t export_kind = EXPORT_NONE;
  std::string export_spec;  // the text behind the letter of -x, control characters in place

  // Read when the media database has answered, in this order.
  std::vector<std::string_view> name_texts;   // -N
  std::vector<std::string_view> query_texts;  // -q
  std::vector<std::string_view> attr_texts;   // -A

  std::vector<std::string> client_names;  // -c and canonical host names; none twice
  std::vector<std::string_view> operands;
  std::string_view last_argument;

  bool linear() const { return linear_count != 0; }
  bool verbose() const { return verbose_count != 0; }
  bool very_verbose() const { return very_verbose_count != 0; }
};

}  // namespace qvr
