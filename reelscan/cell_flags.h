// Flag letters in cells.
#pragma once

#include "cell_text.h"
#include "records.h"
#include "ss_flags.h"

namespace qvr {

// The letters of a save set or of a clone. Any thread.
void rsc_flags_text(std::uint32_t flags, flag_letters mode, cell_text &out);

// Two to four letters: where the fragment lies in its clone (by fragment, or by volume), the state
// of this copy, and what kind of save set it is. Clone and fragment may be absent.
enum class frag_place { by_fragment, by_volume };
void frag_flags_text(const ss_t &ss, const clone_t *clone, const frag_t *frag, frag_place place,
                     cell_text &out);

// The letters of a volume's flags and of its availability.
void vol_flags_text(const vol_t &vol, cell_text &out);
void vol_avail_text(const vol_t &vol, cell_text &out);

}  // namespace qvr
