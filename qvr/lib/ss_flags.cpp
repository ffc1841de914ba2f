#include "ss_flags.h"

#include <algorithm>

#include "debug_words.h"

namespace qvr {

namespace {

constexpr flag_row_t ss_rows[] = {
    {SS_CONTINUED, "continued", "C", ""},
    {SS_VALID, "valid", "v", ""},
    {SS_RECOVERABLE, "recoverable", "r", ""},
    {SS_RECYCLE, "ssrecycle", "E", ""},
    {SS_NDMP, "ndmp", "N", ""},
    {SS_INCOMPLETE, "incomplete", "i", ""},
    {SS_SUSPECT, "suspect", "s", ""},
    {SS_RAW, "raw", "R", ""},
    {SS_LETTER_M, "", "M", ""},
    {SS_DSA, "dsa", "Ns", ""},
    {SS_LETTER_O, "", "o", ""},
    {SS_CHECKPOINT, "checkpoint-restart", "k", ""},
    {SS_TRANSIT, "transit", "T", ""},
    {SS_SNAP, "snap", "P", ""},
    {SS_COVER, "cover", "K", ""},
    {SS_ROLLEDIN, "rolledin", "", ""},
};

constexpr flag_row_t vol_rows[] = {
    {VOL_FULL, "full", "", "full"},
    {VOL_INUSE, "inuse", "d", ""},
    {VOL_RECYCLE, "volrecycle", "", "recyclable"},
    {VOL_READONLY, "readonly", "r", "readonly"},
    {VOL_WORM, "", "(W)", ""},
    {VOL_SCAN, "scan", "S", ""},
    {VOL_MANUAL, "manual", "", "manual-recyclable"},
};

constexpr std::uint32_t clone_letters = SS_RECYCLE | SS_SUSPECT | SS_LETTER_O | SS_TRANSIT;

// One letter a state.
constexpr std::string_view state_letters[16] = {"",  "I", "?", "I", "F", "F", "F", "F",
                                                "?", "?", "?", "?", "?", "?", "?", "?"};

std::string clone_flag_letters(std::uint32_t flags) {
  bool incomplete = (flags & SS_INCOMPLETE) != 0;
  bool available =
      (flags & SS_RECOVERABLE) != 0 || (incomplete && (flags & SS_STATE_MASK) == SS_COMPLETE);
  std::string text;
  for (const flag_row_t &row : ss_rows) {
    if (row.bit == SS_RECOVERABLE) {
      if (available) text += 'a';
    } else if (row.bit == SS_INCOMPLETE) {
      if (incomplete && !available) text += row.letter;
    } else if ((flags & clone_letters & row.bit) != 0) {
      text += row.letter;
    }
  }
  return text;
}

}  // namespace

std::span<const flag_row_t> ss_flag_rows() {
  return ss_rows;
}

std::span<const flag_row_t> vol_flag_rows() {
  return vol_rows;
}

std::string ss_flag_letters(std::uint32_t flags, flag_letters mode) {
  if (mode == flag_letters::clone) return clone_flag_letters(flags);
  std::string text;
  for (const flag_row_t &row : ss_rows) {
    if ((flags & row.bit) != 0) text += row.letter;
  }
  text += state_letters[flags & SS_STATE_MASK];
  return text;
}

const char *vol_flagname(std::uint32_t complement) {
  for (const flag_row_t &row : vol_rows) {
    if (row.bit == ~complement && !row.flag_name.empty()) return row.flag_name.data();
  }
  KS_DEBUG(1, "vol_flagname(): unknown flag value 0x%x\n", complement);
  return "unknown";
}

std::string vol_state_text(const vol_t &vol) {
  bool recycle = (vol.volflags & VOL_RECYCLE) != 0, manual = (vol.volflags & VOL_MANUAL) != 0;
  char first = recycle ? (manual ? 'X' : 'E') : (manual ? 'M' : ' ');
  return {first, vol.volhold == VOL_HELD ? 'A' : ' '};
}

std::uint32_t valid_copies(const ss_t &ss) {
  constexpr std::uint32_t bad_set = SS_INCOMPLETE | SS_RECYCLE;
  constexpr std::uint32_t bad_clone = SS_SUSPECT | SS_INCOMPLETE | SS_RECYCLE;
  if ((ss.ssflags & (bad_set | SS_COMPLETE)) != SS_COMPLETE) return 0;
  auto good = [](const clone_t &clone) {
    return (clone.clflags & (bad_clone | SS_COMPLETE)) == SS_COMPLETE;
  };
  return static_cast<std::uint32_t>(std::ranges::count_if(ss.copies(), good));
}

}  // namespace qvr
