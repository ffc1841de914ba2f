// A constraint made ready: what would otherwise be done for each record is done once.
#pragma once

#include <regex.h>

#include <memory>
#include <unordered_map>

#include "match.h"

namespace qvr {

// A save set on its way through the tests of one filter call.
struct ss_subject_t {
  ss_t &ss;
  const clone_t *clone;  // the one on the filter's volume
  chosen_clones_t *clones;
  std::unordered_map<std::string_view, bool> *known_clients;  // answers of this call
};

struct frag_subject_t {
  const clone_t &clone;
  const frag_t &frag;
  const vol_t *vol;  // set when the test needs it
};

using ss_test_t = bool (*)(const ready_constraint_t &, ss_subject_t &);
using frag_test_t = bool (*)(const ready_constraint_t &, const frag_subject_t &);
using vol_test_t = bool (*)(const ready_constraint_t &, const vol_t &);

// A row of the tables of tests.
struct ss_test_row_t {
  std::int16_t code;
  ss_test_t test;
};
struct frag_test_row_t {
  std::int16_t code;
  bool needs_volume;
  frag_test_t test;
};
struct vol_test_row_t {
  std::int16_t code;
  vol_test_t test;
};

// Null for a code that is not tested there.
ss_test_t ss_test_of(std::int16_t code);
const frag_test_row_t *frag_test_of(std::int16_t code);
vol_test_t vol_test_of(std::int16_t code);

struct regex_closer {
  void operator()(regex_t *pattern) const {
    regfree(pattern);
    delete pattern;
  }
};
using regex_ptr = std::unique_ptr<regex_t, regex_closer>;

struct ready_constraint_t {
  ready_constraint_t(const query_constraint_t &constraint, const match_settings_t &settings);

  const query_constraint_t &qc;
  std::int16_t code;
  const match_settings_t &settings;
  ss_test_t ss_test;
  const frag_test_row_t *frag_test;
  vol_test_t vol_test;

  bool empty_asked;                  // one of the texts is empty
  bool id_good = false;              // the single text is an identifier of the field's kind
  ksui id;                           //
  std::vector<name_forms_t> forms;   // of each text of `name`
  std::vector<regex_ptr> patterns;   // of each text of `annotation`; null when it does not compile
  std::vector<std::string> uppered;  // of each text of `ssattr`
};

}  // namespace qvr
