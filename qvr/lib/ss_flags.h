// The flag bits of save sets, clones and volumes, with the words and letters that stand for them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "records.h"

namespace qvr {

// Save sets and clones share their bit positions. The low four bits of a save set are a state.
enum ss_flag : std::uint32_t {
  SS_STATE_MASK = 0xf,
  SS_COMPLETE = 0x4,  // the bit of the state that a complete copy has
  SS_VALID = 0x100,
  SS_RECOVERABLE = 0x200,
  SS_ROLLEDIN = 0x400,
  SS_CHECKPOINT = 0x800,
  SS_RECYCLE = 0x1000,
  SS_DSA = 0x4000,
  SS_INCOMPLETE = 0x10000,
  SS_SUSPECT = 0x20000,
  SS_LETTER_O = 0x80000,
  SS_RAW = 0x100000,
  SS_NDMP = 0x200000,
  SS_CONTINUED = 0x800000,
  SS_COVER = 0x2000000,
  SS_SNAP = 0x4000000,
  SS_TRANSIT = 0x8000000,
  SS_LETTER_M = 0x20000000,
};

enum vol_flag : std::uint32_t {
  VOL_FULL = 0x1,
  VOL_INUSE = 0x2,
  VOL_RECYCLE = 0x10,
  VOL_READONLY = 0x20,
  VOL_WORM = 0x40,  // "(W)" behind the volume name
  VOL_SCAN = 0x80,
  VOL_MANUAL = 0x200,
};

enum vol_avail : std::uint32_t { VOL_NEAR = 1, VOL_SMARTMEDIA = 2 };

// A volume whose volhold is this shows "A" in its state.
inline constexpr std::int64_t VOL_HELD = 0x7fffffff;
// Longer names carry no "(W)".
inline constexpr std::size_t VOL_WORM_NAME_MAX = 250;

// One flag. Texts are empty where the flag has none.
struct flag_row_t {
  std::uint32_t bit;
  std::string_view keyword;    // the report's word
  std::string_view letter;     // in the long listing
  std::string_view flag_name;  // of volumes: vol_flagname
};

// In the order of their letters.
std::span<const flag_row_t> ss_flag_rows();
std::span<const flag_row_t> vol_flag_rows();

enum class flag_letters { save_set = 0, clone = 1 };
// The letters of the long listing. Any thread.
std::string ss_flag_letters(std::uint32_t flags, flag_letters mode);

// The name of the volume flag whose bitwise complement is given; "unknown" for any other value.
const char *vol_flagname(std::uint32_t complement);
// The two letters of the state column.
std::string vol_state_text(const vol_t &vol);

// How many copies of the save set are complete and good.
std::uint32_t valid_copies(const ss_t &ss);

}  // namespace qvr
