#include "cell_flags.h"

namespace qvr {

void rsc_flags_text(std::uint32_t flags, flag_letters mode, cell_text &out) {
  out.add(ss_flag_letters(flags, mode));
}

namespace {

char place_by_fragment(const clone_t &clone, const frag_t *frag) {
  if (clone.nfrags == 1) return 'c';
  if (frag == clone.frags) return 'h';
  return frag == clone.frags + clone.nfrags - 1 ? 't' : 'm';
}

bool same_volume(const frag_t &a, const frag_t &b) {
  return ksui_cmp(a.volid, b.volid) == 0;
}

char place_by_volume(const clone_t &clone, const frag_t *frag) {
  const frag_t &first = clone.frags[0], &last = clone.frags[clone.nfrags - 1];
  if (same_volume(first, last)) return 'c';
  if (frag != nullptr && same_volume(*frag, first)) return 'h';
  return frag != nullptr && same_volume(*frag, last) ? 't' : 'm';
}

char place_letter(const clone_t *clone, const frag_t *frag, frag_place place) {
  if (clone == nullptr || clone->nfrags == 0) return ' ';
  return place == frag_place::by_fragment ? place_by_fragment(*clone, frag)
                                          : place_by_volume(*clone, frag);
}

// The flags of a save set that say something of its state.
constexpr std::uint32_t STATE_FLAGS =
    0x3ffef0 & ~std::uint32_t{SS_NDMP | SS_RAW | SS_DSA | SS_LETTER_O};

char state_letter(const ss_t &ss, const clone_t *clone) {
  const std::uint32_t s = ss.ssflags, c = clone == nullptr ? 0 : clone->clflags;
  const std::uint32_t m = s & STATE_FLAGS;
  const bool complete = (s & SS_COMPLETE) != 0, clone_complete = (c & SS_COMPLETE) != 0;
  const bool incomplete = (m & SS_INCOMPLETE) != 0, clone_recycle = (c & SS_RECYCLE) != 0;
  const bool first = clone != nullptr && ss.ncopies > 0 && clone->cloneid == ss.clones[0].cloneid;

  if ((m & SS_RECYCLE) != 0 && (!incomplete || !complete)) return 'E';
  if (incomplete && !complete && !clone_complete && first && clone_recycle) return 'E';
  if (!incomplete && first && clone_recycle) return 'E';
  if (!first && (c & SS_INCOMPLETE) != 0 && !clone_recycle && !complete && !clone_complete) {
    return 'i';
  }
  if (!complete) return 'i';
  if (incomplete || (c & SS_INCOMPLETE) != 0) return 'a';
  if ((m & SS_RECOVERABLE) != 0) return 'r';
  if ((m & ~std::uint32_t{SS_CHECKPOINT | SS_STATE_MASK}) != 0) return '?';
  return 'b';
}

struct kind_row_t {
  std::uint32_t bit;
  std::string_view letter;
};
constexpr kind_row_t kind_rows[] = {
    {SS_NDMP, "N"}, {SS_RAW, "R"}, {SS_SNAP, "P"}, {SS_COVER, "K"}, {SS_DSA, "Ns"},
};

}  // namespace

void frag_flags_text(const ss_t &ss, const clone_t *clone, const frag_t *frag, frag_place place,
                     cell_text &out) {
  out.add(place_letter(clone, frag, place));
  out.add(state_letter(ss, clone));
  if ((ss.ssflags & STATE_FLAGS & SS_CHECKPOINT) != 0) out.add('k');
  for (const kind_row_t &row : kind_rows) {
    if ((ss.ssflags & row.bit) != 0) return out.add(row.letter);
  }
}

void vol_flags_text(const vol_t &vol, cell_text &out) {
  if ((vol.volflags & VOL_INUSE) != 0) out.add('d');
  if ((vol.volflags & VOL_READONLY) != 0) out.add('r');
  if ((vol.volflags & VOL_SCAN) != 0) out.add('S');
}

void vol_avail_text(const vol_t &vol, cell_text &out) {
  if ((vol.avail & VOL_NEAR) != 0)
    out.add('n');
  else if ((vol.avail & VOL_SMARTMEDIA) != 0)
    out.add("sm");
}

}  // namespace qvr
