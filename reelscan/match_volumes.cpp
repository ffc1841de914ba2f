// The tests of volumes, and of clones with their fragments, a row a field.

#include "match_ready.h"
#include "ss_flags.h"

namespace qvr {

namespace {

using ready = const ready_constraint_t &;

constexpr std::uint64_t FULL = 101;  // the word "full" of a query

// Whole percents; a small volume that holds more than fits, or a volume that is full, shows so.
std::uint64_t percent_of_small(const vol_t &vol) {
  return vol.written < vol.capacity ? vol.written * 100 / vol.capacity : 100;
}

std::uint64_t percent_used(const vol_t &vol) {
  if ((vol.volflags & VOL_FULL) != 0) return FULL;
  std::uint64_t percent =
      vol.capacity <= 999 ? percent_of_small(vol) : vol.written / (vol.capacity / 100);
  return percent > 100 ? 100 : percent;
}

bool used_exactly(ready r, const vol_t &vol) {
  if ((vol.volflags & VOL_FULL) != 0 || vol.capacity <= 999) {
    return number_matches(r.qc, percent_used(vol));
  }
  double exact = static_cast<double>(vol.written) / (static_cast<double>(vol.capacity) / 100);
  std::uint64_t percent = exact >= 100 ? 100 : static_cast<std::uint64_t>(exact);
  // A fraction of one percent is more than none.
  bool fraction =
      (r.qc.qc_cmp & QC_LOWER) != 0 && r.qc.qc_lo == 1 && exact > static_cast<double>(percent);
  if (fraction && percent == 0) percent = 1;
  return number_matches(r.qc, percent);
}

template <auto Member>
bool number(ready r, const vol_t &vol) {
  return number_matches(r.qc, vol.*Member);
}
template <auto Member>
bool time(ready r, const vol_t &vol) {
  return time_matches(r.qc, vol.*Member);
}
template <auto Member>
bool flags(ready r, const vol_t &vol) {
  return flags_match(r.qc, vol.*Member);
}

// A member that came empty is an empty text, not a missing one.
std::string_view present(std::string_view text) {
  return text.data() == nullptr ? std::string_view("") : text;
}
template <auto Member>
bool text(ready r, const vol_t &vol) {
  return text_matches(r.qc, present(vol.*Member));
}
template <auto Member>
bool text_nocase(ready r, const vol_t &vol) {
  return text_matches_nocase(r.qc, present(vol.*Member));
}

constexpr vol_test_row_t vol_rows[] = {
    {2, number<&vol_t::capacity>},
    {4, number<&vol_t::written>},
    {6, number<&vol_t::read>},
    {8, number<&vol_t::next>},
    {10, number<&vol_t::nrec>},
    {16, time<&vol_t::volaccess>},
    {18, time<&vol_t::olabel>},
    {20, time<&vol_t::labeled>},
    {38, time<&vol_t::volretent>},
    {22, number<&vol_t::mounts>},
    {24, number<&vol_t::recycled>},
    {26, flags<&vol_t::avail>},
    {34, used_exactly},
    {102, text<&vol_t::location>},
    {104, text_nocase<&vol_t::family>},
    {106, text_nocase<&vol_t::type>},
    {112, text_nocase<&vol_t::pool>},
    {114, flags<&vol_t::volflags>},
    {150, text<&vol_t::volume>},
    {152, text<&vol_t::barcode>},
    {160,
     [](ready r, const vol_t &vol) {
       return !is_single(r.qc) || (r.id_good && ksui_cmp(vol.volid, r.id) == 0);
     }},
};

using subject = const frag_subject_t &;

template <vol_test_t Test>
bool of_volume(ready r, subject s) {
  return Test(r, *s.vol);
}
template <auto Member>
bool of_frag(ready r, subject s) {
  return number_matches(r.qc, static_cast<std::uint64_t>(s.frag.*Member));
}

constexpr frag_test_row_t frag_rows[] = {
    {2, true, of_volume<number<&vol_t::capacity>>},
    {4, true, of_volume<number<&vol_t::written>>},
    {6, true, of_volume<number<&vol_t::read>>},
    {8, true, of_volume<number<&vol_t::next>>},
    {10, true, of_volume<number<&vol_t::nrec>>},
    {11, false,
     [](ready r, subject s) {
       return number_matches(r.qc, static_cast<std::uint64_t>(s.clone.cloneid));
     }},
    {13, false, [](ready r, subject s) { return flags_match(r.qc, s.clone.clflags); }},
    {17, false, [](ready r, subject s) { return signed_matches(r.qc, s.clone.cloneid); }},
    {19, false, of_frag<&frag_t::fragoffset>},
    {23, false, of_frag<&frag_t::mediafile>},
    {25, false, of_frag<&frag_t::mediarec>},
    {27, false, of_frag<&frag_t::mediamark>},
    {29, false, of_frag<&frag_t::ssaccess>},
    {16, true, of_volume<time<&vol_t::volaccess>>},
    {18, true, of_volume<time<&vol_t::olabel>>},
    {20, true, of_volume<time<&vol_t::labeled>>},
    {22, true, of_volume<number<&vol_t::mounts>>},
    {24, true, of_volume<number<&vol_t::recycled>>},
    {26, true, of_volume<flags<&vol_t::avail>>},
    {38, true, of_volume<time<&vol_t::volretent>>},
    {34, true, [](ready r, subject s) { return number_matches(r.qc, percent_used(*s.vol)); }},
    {102, true, of_volume<text<&vol_t::location>>},
    {104, true, of_volume<text_nocase<&vol_t::family>>},
    {106, true, of_volume<text_nocase<&vol_t::type>>},
    {112, true, of_volume<text_nocase<&vol_t::pool>>},
    {114, true, of_volume<flags<&vol_t::volflags>>},
    {150, true, of_volume<text<&vol_t::volume>>},
    {152, true, of_volume<text<&vol_t::barcode>>},
    {160, false, [](ready r, subject s) { return r.id_good && ksui_cmp(s.frag.volid, r.id) == 0; }},
};

}  // namespace

vol_test_t vol_test_of(std::int16_t code) {
  for (const vol_test_row_t &row : vol_rows) {
    if (row.code == code) return row.test;
  }
  return nullptr;
}

const frag_test_row_t *frag_test_of(std::int16_t code) {
  for (const frag_test_row_t &row : frag_rows) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

}  // namespace qvr
