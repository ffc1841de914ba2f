// Records in memory for tests.
#pragma once

#include <deque>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "columns.h"
#include "constraint.h"
#include "field_catalogue.h"
#include "records.h"

namespace qvr::test {

inline ksui id_of(std::uint32_t number, std::int32_t kind = KSUI_SAVESET) {
  ksui id;
  id.set_word(0, static_cast<std::uint32_t>(kind));
  id.set_word(1, number);
  return id;
}
inline ksui vol_id(std::uint32_t number) {
  return id_of(number, KSUI_VOLUME);
}

struct frag_row {
  std::uint32_t volume;
  std::int64_t offset = 0;
  std::uint32_t file = 0, rec = 0;
};
struct clone_row {
  std::int64_t cloneid = 0;
  std::vector<frag_row> frags;
  std::uint32_t flags = 0;
};

// Owns what it makes.
class record_maker {
 public:
  ss_t *save_set(std::uint32_t number, std::string_view client = "mars",
                 std::string_view name = "/home") {
    ss_t *ss = memory_->make<ss_t>();
    ss->ssid = id_of(number);
    ss->client = memory_->copy(client);
    ss->name = memory_->copy(name);
    return ss;
  }
  void set_clones(ss_t &ss, const std::vector<clone_row> &rows) {
    std::span<clone_t> clones = memory_->make_array<clone_t>(rows.size());
    ss.ncopies = static_cast<std::uint32_t>(rows.size());
    ss.clones = clones.data();
    for (std::size_t c = 0; c < rows.size(); c++) {
      std::span<frag_t> frags = memory_->make_array<frag_t>(rows[c].frags.size());
      clones[c].cloneid = rows[c].cloneid;
      clones[c].clflags = rows[c].flags;
      clones[c].nfrags = static_cast<std::uint32_t>(frags.size());
      clones[c].frags = frags.data();
      for (std::size_t f = 0; f < frags.size(); f++) {
        frags[f].volid = vol_id(rows[c].frags[f].volume);
        frags[f].fragoffset = rows[c].frags[f].offset;
        frags[f].mediafile = rows[c].frags[f].file;
        frags[f].mediarec = rows[c].frags[f].rec;
      }
    }
  }
  vol_t *volume(std::uint32_t number, std::string_view name) {
    vol_t *vol = memory_->make<vol_t>();
    vol->volid = vol_id(number);
    vol->volume = memory_->copy(name);
    for (std::string_view vol_t::*text :
         {&vol_t::family, &vol_t::type, &vol_t::location, &vol_t::pool, &vol_t::barcode}) {
      vol->*text = memory_->copy("");
    }
    return vol;
  }
  packed_attrs attrs(const attrlist &list) {
    return packed_attrs(memory_->copy(packed_attrs::pack(list)));
  }
  std::string_view text(std::string_view text) { return memory_->copy(text); }
  std::shared_ptr<arena> memory() { return memory_; }

 private:
  std::shared_ptr<arena> memory_ = std::make_shared<arena>();
};

inline const mr_t *field(std::string_view word) {
  return rptdata_find(field_catalogue(), word);
}
inline report_column_t column(std::string_view word, std::int32_t width = 0) {
  report_column_t made;
  made.rc_mr = field(word);
  made.rc_width =
      width != 0 || made.rc_mr == nullptr ? width : static_cast<std::int32_t>(made.rc_mr->mr_width);
  return made;
}

// Constraints as the query language leaves them.
inline query_constraint_t text_is(std::string_view word, std::vector<std::string> values) {
  query_constraint_t qc;
  qc.qc_mr = field(word);
  qc.qc_cmp = values.size() == 1 ? QC_EQUAL : QC_LIST;
  qc.qc_eqbits = 1;
  qc.values = std::move(values);
  return qc;
}
inline query_constraint_t number_is(std::string_view word, std::int64_t value) {
  query_constraint_t qc;
  qc.qc_mr = field(word);
  qc.qc_cmp = QC_EQUAL;
  qc.qc_lo = static_cast<std::uint64_t>(value);
  return qc;
}
inline query_constraint_t at_least(std::string_view word, std::int64_t value) {
  query_constraint_t qc = number_is(word, value);
  qc.qc_cmp = QC_EQUAL | QC_LOWER;
  return qc;
}
inline query_constraint_t at_most(std::string_view word, std::int64_t value) {
  query_constraint_t qc = number_is(word, 0);
  qc.qc_cmp = QC_EQUAL | QC_UPPER;
  qc.qc_hi = static_cast<std::uint64_t>(value);
  return qc;
}
inline query_constraint_t between(std::string_view word, std::int64_t low, std::int64_t high) {
  query_constraint_t qc = at_least(word, low);
  qc.qc_cmp |= QC_UPPER | QC_RANGE;
  qc.qc_hi = static_cast<std::uint64_t>(high);
  return qc;
}
inline query_constraint_t keyword(std::string_view word, bool wanted = true) {
  query_constraint_t qc;
  qc.qc_mr = field(word);
  qc.qc_cmp = QC_KEYWORD;
  qc.qc_lo = qc.qc_mr->mr_width;
  qc.qc_hi = wanted ? qc.qc_lo : 0;
  return qc;
}
// dedupe, rehydrated, syntheticfull and deviceless test an attribute.
inline query_constraint_t attr_keyword(std::string_view word, bool wanted) {
  query_constraint_t qc = keyword(word);
  qc.qc_lo = 0;
  qc.qc_hi = wanted ? 1 : 0;
  return qc;
}

}  // namespace qvr::test
