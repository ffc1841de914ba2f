// What a query keeps of a catalogue, worked out the slow way: every record of the file is held
// against every constraint, with no plan and nothing of the command's own code.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qvr::test {

using attr_values = std::map<std::string, std::vector<std::string>>;

struct slow_volume {
  std::string volid;
  std::map<std::string, std::string> texts;     // volume, family, type, location, pool, barcode
  std::map<std::string, std::int64_t> numbers;  // capacity ... metric, volflags, avail
  std::int64_t twin_written = -1;               // of the volume that a ".RO" name belongs to
};

struct slow_fragment {
  std::int64_t offset = 0, mediafile = 0, mediarec = 0, mediamark = 0, ssaccess = 0;
  const slow_volume *volume = nullptr;
};

struct slow_clone {
  std::int64_t cloneid = 0, flags = 0;
  std::vector<slow_fragment> fragments;
};

struct slow_save_set {
  std::string ssid, pssid, clientid, client, name;
  std::map<std::string, std::int64_t> numbers;  // columns of the file
  attr_values attrs;
  std::vector<slow_clone> clones;

  const std::string *attr(const std::string &key) const;  // first value; null without one
};

struct slow_catalogue {
  std::vector<slow_volume> volumes;
  std::vector<slow_save_set> save_sets;

  static bool read(const std::string &file, slow_catalogue &catalogue);
};

// One field of a query. Bounds are inclusive.
struct slow_constraint {
  std::string field;
  bool single = false, has_low = false, has_high = false;
  std::int64_t low = 0, high = 0;  // a single value is in `low`
  std::vector<std::string> texts;  // alternatives
  std::vector<bool> equal;         // of ssattr, one a text
  std::int64_t mask = 0, bits = 0;
  bool truth = true;
};

struct slow_attr_constraint {
  std::string name;
  bool negated = false;
  std::vector<std::string> values;
};

struct slow_query {
  std::vector<slow_constraint> constraints;
  std::vector<slow_attr_constraint> attrs;
};

// MAY: two rules that both hold give two answers, so that either is right (say, a value that each
// copy has of its own, asked of a save set).
enum class verdict { NO, MAY, YES };

class slow_model {
 public:
  slow_model(const slow_catalogue &catalogue, const slow_query &query)
      : catalogue_(catalogue), query_(query) {}

  // The save set is kept; the save set is kept on this volume; so is this very fragment.
  verdict keeps(const slow_save_set &ss) const;
  verdict keeps(const slow_save_set &ss, const slow_volume &vol) const;
  verdict keeps(const slow_save_set &ss, const slow_clone &clone,
                const slow_fragment &fragment) const;
  // The volume fits and holds a save set that is kept, where the query speaks of save sets.
  verdict keeps(const slow_volume &vol) const;
  bool asks(std::string_view field) const;

 private:
  verdict of_save_set(const slow_save_set &ss, const slow_volume *vol) const;
  verdict of_fragment(const slow_clone &clone, const slow_fragment &fragment) const;
  bool is_chosen(const slow_save_set &ss, const slow_clone &clone) const;
  bool fits_volume(const slow_volume &vol) const;
  bool asks_fragments() const;
  bool asks_save_sets() const;

  const slow_catalogue &catalogue_;
  const slow_query &query_;
};

// An identifier in its long form against a text that a user types.
bool slow_same_id(const std::string &long_form, const std::string &typed);
// Base and delta of a limit as one time.
std::int64_t slow_time_add(std::int64_t delta, std::int64_t base);

}  // namespace qvr::test
