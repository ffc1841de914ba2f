#include "match_ready.h"

#include <cctype>

namespace qvr {

namespace {

void ready_save_set_id(ready_constraint_t &ready) {
  std::int64_t cloneid;
  ready.id_good = ssid_parse(first_text(ready.qc), ready.id, &cloneid);
}

void ready_volume_id(ready_constraint_t &ready) {
  ready.id_good = volid_parse(first_text(ready.qc), ready.id);
}

void ready_client_id(ready_constraint_t &ready) {
  ready.id_good = clientid_parse(first_text(ready.qc), ready.id);
}

void ready_names(ready_constraint_t &ready) {
  for (const std::string &name : ready.qc.values) ready.forms.push_back(name_forms(name));
}

void ready_patterns(ready_constraint_t &ready) {
  for (const std::string &text : ready.qc.values) {
    regex_ptr pattern;
    auto compiled = std::make_unique<regex_t>();
    if (!text.empty() && regcomp(compiled.get(), text.c_str(), REG_ICASE | REG_NOSUB) == 0) {
      pattern.reset(compiled.release());
    }
    ready.patterns.push_back(std::move(pattern));
  }
}

void ready_shell_patterns(ready_constraint_t &ready) {
  for (std::string text : ready.qc.values) {
    for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    ready.uppered.push_back(std::move(text));
  }
}

struct ready_row_t {
  std::int16_t code;
  void (*make)(ready_constraint_t &);
};
constexpr ready_row_t ready_rows[] = {
    {1, ready_save_set_id},     {173, ready_save_set_id}, {160, ready_volume_id},
    {63, ready_client_id},      {61, ready_names},        {65, ready_patterns},
    {91, ready_shell_patterns},
};

}  // namespace

ready_constraint_t::ready_constraint_t(const query_constraint_t &constraint,
                                       const match_settings_t &settings_)
    : qc(constraint),
      code(constraint.qc_mr->mr_id),
      settings(settings_),
      ss_test(ss_test_of(code)),
      frag_test(frag_test_of(code)),
      vol_test(vol_test_of(code)),
      empty_asked(asks_empty(constraint)) {
  for (const ready_row_t &row : ready_rows) {
    if (row.code == code) row.make(*this);
  }
}

}  // namespace qvr
