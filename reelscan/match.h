// Which records a query keeps: everything that the server was not asked to test.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "attrlist.h"
#include "constraint.h"
#include "function_view.h"
#include "match_values.h"
#include "records.h"

namespace qvr {

struct match_settings_t {
  // Whether two names are one client; null: names compare by text alone. Any thread.
  bool (*same_client)(std::string_view a, std::string_view b) = nullptr;
  bool sort_by_media_place = false;  // the order holds "o"
};

// The clones that a constraint chose of a save set: only these become rows. A save set that is not
// in it keeps all of its clones. The ids are decimal texts.
using chosen_clones_t = std::unordered_map<const ss_t *, std::vector<std::string>>;

// A constraint made ready for a million records.
struct ready_constraint_t;

// Where a fragment's volume comes from when the caller has not got it: null when there is none.
using volume_source = function_view<const vol_t *(const ksui &volid)>;

// Constraints that a filter leaves out, by their place in the list.
using left_out_t = std::vector<bool>;

// A query made ready. Nothing in it changes after it is made, so any number of threads may test
// with it at once. It borrows the constraints.
class query_matcher {
 public:
  query_matcher(const query_constraints_t &constraints, const attrlist &attr_constraints,
                const match_settings_t &settings);
  ~query_matcher();
  query_matcher(const query_matcher &) = delete;
  query_matcher &operator=(const query_matcher &) = delete;

  // Removes the volumes that fail and returns how many remain. Volumes that were not accessed since
  // the lower bound of the save time fail. Read-only twins get the written size of their volume
  // when anything is tested.
  std::size_t filter_volumes(vol_list &list, const left_out_t &left_out = {}) const;

  struct save_set_filter_t {
    const vol_t *vol = nullptr;         // keep what lies on it
    bool want_detail = false;           // clones and fragments have been fetched
    chosen_clones_t *clones = nullptr;  // receives what a workflow chose
    bool *late_test = nullptr;          // set when each row must be tested by fragment_matches
    const left_out_t *left_out = nullptr;
    volume_source volumes = nullptr;  // of the calling thread
  };
  // Removes the save sets that fail and returns how many remain. A tested name loses its trailing
  // white space for good.
  std::size_t filter_save_sets(ss_list &list, const save_set_filter_t &filter) const;

  // True when clone and fragment fit. `vol` is the fragment's volume, if the caller has it; else
  // it is asked of `volumes`, when a constraint needs it. A volume that cannot be had is no match.
  bool fragment_matches(const clone_t &clone, const frag_t &frag, const vol_t *vol,
                        const volume_source &volumes) const;

  // True when the attribute constraints hold.
  bool attrs_match(const packed_attrs &attrs) const;

 private:
  struct attr_entry_t {
    std::string name;     // without its "!"
    std::string starred;  // tried when the name is missing; empty for a name that has its own "*"
    bool negated = false;
    vallist values;
  };

  bool some_fragment_matches(const ss_t &ss, const save_set_filter_t &filter) const;

  std::vector<std::unique_ptr<ready_constraint_t>> ready_;
  std::vector<attr_entry_t> attr_entries_;
  match_settings_t settings_;
  bool wanted_ = false;         // a constraint tests save sets, clones or fragments
  bool wants_detail_ = false;   // one of them clones or fragments
  bool wants_volumes_ = false;  // a constraint tests volumes
  std::int64_t access_limit_ = INT64_MIN;
};

// Gives each read-only twin (a volume whose name ends in ".RO") the written size of the volume that
// it shows.
void copy_to_read_only_twins(vol_list &list);

}  // namespace qvr
