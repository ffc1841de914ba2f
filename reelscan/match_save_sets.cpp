// The tests of save sets, a row a field.

#include <fnmatch.h>

#include <algorithm>
#include <cctype>

#include "cell_attrs.h"
#include "clone_attrs.h"
#include "clone_retention.h"
#include "dates.h"
#include "match_ready.h"
#include "ss_flags.h"

namespace qvr {

namespace {

using ready = const ready_constraint_t &;
using subject = ss_subject_t &;

// Numbers.
template <auto Member>
bool number(ready r, subject s) {
  return number_matches(r.qc, static_cast<std::uint64_t>(s.ss.*Member));
}
template <std::int64_t (*Get)(const ss_subject_t &)>
bool time(ready r, subject s) {
  return time_matches(r.qc, Get(s));
}
template <auto Member>
std::int64_t member(const ss_subject_t &s) {
  return s.ss.*Member;
}

std::int64_t expiry(const ss_subject_t &s) {
  return s.ss.ssretent == 0 ? 0 : time_add(s.ss.ssretent, s.ss.ssinsert);
}
// A limit behind the insert time.
template <auto Delta>
std::int64_t limit(const ss_subject_t &s) {
  std::uint32_t delta = s.ss.*Delta;
  return delta == DELTA_FOREVER ? TIME_FOREVER_32 : ss_limit(s.ss, delta);
}
std::int64_t clone_limit(const ss_subject_t &s) {
  return clone_retention_time(s.ss, s.clone);
}
std::int64_t lock_time(const ss_subject_t &s) {
  return attr_signed_number(clone_attr(s.clone, s.ss, ATTR_ACTION_RETENTION));
}
std::int64_t protection(const ss_subject_t &s) {
  return attr_signed_number(s.ss.attrs.first("*policy protection period"));
}
std::int64_t span(std::uint32_t delta) {
  return delta == DELTA_FOREVER ? TIME_FOREVER_32 : delta;
}

// Texts.
bool or_empty(ready r, std::string_view value) {
  return value.empty() ? r.empty_asked : text_matches_nocase(r.qc, value);
}

bool is_yes(std::string_view value) {
  return equal_nocase(value, "Yes");
}

template <std::size_t Size>
struct attr_name_t {
  constexpr attr_name_t(const char (&text_)[Size]) { std::copy_n(text_, Size, text); }
  char text[Size];
  constexpr operator std::string_view() const { return {text, Size - 1}; }
};
template <attr_name_t Name>
std::string_view attr(const ss_subject_t &s) {
  return s.ss.attrs.first(Name);
}

template <attr_name_t Name>
bool attr_equal(ready r, subject s) {
  std::string_view value = attr<Name>(s);
  if (value.data() == nullptr) return false;
  return std::find(r.qc.values.begin(), r.qc.values.end(), value) != r.qc.values.end();
}
template <attr_name_t Name>
bool attr_or_empty(ready r, subject s) {
  return or_empty(r, attr<Name>(s));
}
template <attr_name_t Name>
bool attr_nocase(ready r, subject s) {
  return text_matches_nocase(r.qc, attr<Name>(s));
}
template <attr_name_t Name>
bool attr_keyword(ready r, subject s) {
  return is_yes(attr<Name>(s)) == (r.qc.qc_hi != 0);
}
template <const std::string_view &Name>
bool per_clone(ready r, subject s) {
  return or_empty(r, clone_attr(s.clone, s.ss, Name));
}

// Virtual machines: "ALL_VM" takes every save set that has the attribute.
template <attr_name_t Name>
bool machine(ready r, subject s) {
  std::string_view value = attr<Name>(s);
  if (value.data() == nullptr) return false;
  if (is_single(r.qc) && first_text(r.qc) == "ALL_VM") return true;
  return text_matches_nocase(r.qc, value);
}

bool client(ready r, subject s) {
  const std::string_view name = s.ss.client;
  if (!is_single(r.qc)) {
    return std::find(r.qc.values.begin(), r.qc.values.end(), name) != r.qc.values.end();
  }
  if (name == first_text(r.qc)) return true;
  if (r.settings.same_client == nullptr) return false;
  auto [known, fresh] = s.known_clients->try_emplace(name, false);
  if (fresh) known->second = r.settings.same_client(first_text(r.qc), name);
  return known->second;
}

bool name(ready r, subject s) {
  std::string_view &text = s.ss.name;
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
    text.remove_suffix(1);
  }
  for (std::size_t i = 0; i < r.qc.values.size(); i++) {
    const name_forms_t &forms = r.forms[i];
    if (text == r.qc.values[i]) return true;
    if (forms.usable && (text == forms.escaped || text == forms.local)) return true;
  }
  return false;
}

bool annotation(ready r, subject s) {
  std::string_view text = attr<"annotation">(s);
  if (text.data() == nullptr) return false;
  for (const regex_ptr &pattern : r.patterns) {
    regmatch_t range = {0, static_cast<regoff_t>(text.size())};
    if (pattern && regexec(pattern.get(), text.data(), 1, &range, REG_STARTEND) == 0) return true;
  }
  return false;
}

bool deviceless(ready r, subject s) {
  std::string_view value = attr<"Deviceless backup">(s);
  if (value.data() == nullptr) return false;
  return r.qc.qc_hi == 0 || is_yes(value);
}

// True when an attribute with at least one value has a name that fits the pattern.
bool has_attribute_like(const packed_attrs &attrs, const std::string &pattern) {
  packed_attrs::cursor_t at = attrs.cursor();
  packed_attrs::values_t values = packed_attrs::no_values();
  std::string_view name, value;
  std::string upper;
  while (at.next(name, values)) {
    if (!values.next(value)) continue;
    upper.assign(name);
    for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (fnmatch(pattern.c_str(), upper.c_str(), FNM_PATHNAME | FNM_PERIOD) == 0) return true;
  }
  return false;
}

bool attribute_names(ready r, subject s) {
  for (std::size_t i = 0; i < r.uppered.size(); i++) {
    bool wanted = r.uppered.size() == 1 ? r.qc.qc_cmp != QC_NOT_EQUAL && (r.qc.qc_eqbits & 1) != 0
                                        : (r.qc.qc_eqbits >> i & 1) != 0;
    if (has_attribute_like(s.ss.attrs, r.uppered[i]) != wanted) return false;
  }
  return true;
}

struct workflow_value_t {
  std::string_view name, ids;
};
workflow_value_t split_workflow(std::string_view value) {
  std::size_t colon = value.find(':');
  if (colon == std::string_view::npos) return {value, {}};
  return {value.substr(0, colon), value.substr(colon + 1)};
}

bool names_two_workflows(packed_attrs::values_t values) {
  std::string_view value;
  if (!values.next(value)) return false;
  std::string_view first = split_workflow(value).name;
  while (values.next(value)) {
    if (!equal_nocase(split_workflow(value).name, first)) return true;
  }
  return false;
}

void choose_clones(subject s, std::string_view ids) {
  std::vector<std::string> chosen;
  while (!ids.empty()) {
    std::size_t end = std::min(ids.find_first_of(" \t\n"), ids.size());
    if (end > 0) chosen.emplace_back(ids.substr(0, end));
    ids.remove_prefix(std::min(end + 1, ids.size()));
  }
  // A value that names no clone narrows nothing.
  if (s.clones != nullptr && !chosen.empty()) s.clones->emplace(&s.ss, std::move(chosen));
}

bool workflow(ready r, subject s) {
  packed_attrs::values_t values = packed_attrs::no_values();
  if (s.ss.attrs.first(ATTR_WORKFLOW).empty()) return r.empty_asked;
  s.ss.attrs.find(ATTR_WORKFLOW, values);
  if (!names_two_workflows(values)) return per_clone<ATTR_WORKFLOW>(r, s);
  std::string_view value;
  while (values.next(value)) {
    workflow_value_t parts = split_workflow(value);
    if (!text_matches_nocase(r.qc, parts.name)) continue;
    choose_clones(s, parts.ids);
    return true;
  }
  return false;
}

template <ksui ss_t::*Member>
bool identifier(ready r, subject s) {
  return !is_single(r.qc) || (r.id_good && ksui_cmp(s.ss.*Member, r.id) == 0);
}

constexpr ss_test_row_t rows[] = {
    {1, identifier<&ss_t::pssid>},
    {3, [](ready r, subject s) { return flags_match(r.qc, s.ss.ssflags); }},
    {5, number<&ss_t::totalsize>},
    {7, number<&ss_t::nfiles>},
    {9, time<expiry>},
    {15, number<&ss_t::ncopies>},
    {39, time<limit<&ss_t::ssbrowse>>},
    {41, time<limit<&ss_t::ssretent>>},
    {43, time<member<&ss_t::ssinsert>>},
    {45, time<member<&ss_t::sscreate>>},
    {47, time<member<&ss_t::sscomp>>},
    {51, time<member<&ss_t::savetime>>},
    {171, time<member<&ss_t::savetime>>},
    {53, attr_or_empty<"group">},
    {55, [](ready r, subject s) { return signed_matches(r.qc, s.ss.level); }},
    {57, client},
    {61, name},
    {63, identifier<&ss_t::clientid>},
    {65, annotation},
    {67, time<clone_limit>},
    {69, attr_equal<"save set bundle">},
    {71, attr_keyword<"*De-duplication">},
    {73, [](ready r, subject s) { return number_matches(r.qc, valid_copies(s.ss)); }},
    {75, attr_equal<"*checkpoint_id">},
    {77, attr_equal<"*checkpoint_seq">},
    {79, attr_keyword<"*Rehydrated">},
    {81, attr_keyword<"*Synthetic full">},
    {83, machine<"*vm_name">},
    {87, attr_nocase<"*restricted data zone">},
    {89, deviceless},
    {91, attribute_names},
    {93, [](ready r, subject s) { return duration_matches(r.qc, span(s.ss.ssretent)); }},
    {95,
     [](ready r, subject s) {
       return duration_matches(r.qc, span(clone_retention(s.ss, s.clone).delta));
     }},
    {97, time<lock_time>},
    {99, time<protection>},
    {101, per_clone<ATTR_POLICY>},
    {103, workflow},
    {105, per_clone<ATTR_ACTION>},
    {124, machine<"*totalvmdiskutil">},
    {125, machine<"*occupiedvmdiskutil">},
    {173, identifier<&ss_t::ssid>},
};

}  // namespace

ss_test_t ss_test_of(std::int16_t code) {
  for (const ss_test_row_t &row : rows) {
    if (row.code == code) return row.test;
  }
  return nullptr;
}

}  // namespace qvr
