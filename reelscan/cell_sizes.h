// Sizes in cells: short figures, percent, and what part of a clone lies where.
#pragma once

#include <cstdint>

#include "cell_text.h"
#include "records.h"

namespace qvr {

// Three leading digits at most and a decimal unit; the rest is cut off, not rounded: 12345 is
// "12 MB". Any thread.
void rsc_size_kb_text(std::uint64_t kilobytes, cell_text &out);
// The same for bytes: from 1 to 999 as "999  B", else in kilobytes rounded up.
void rsc_size_text(std::uint64_t bytes, cell_text &out);

// How full a volume is: "full", "0%", tenths below one percent, or whole percents.
void rsc_percent_used(const vol_t &vol, cell_text &out);

// Bytes of the fragment; of a clone's run of fragments on the volume of the fragment. The fragment
// is one of the clone's.
std::uint64_t frag_size(const ss_t &ss, const clone_t &clone, const frag_t &frag);
std::uint64_t size_on_volume(const ss_t &ss, const clone_t &clone, const frag_t &frag);
// The offset of the fragment's last byte.
std::uint64_t frag_last_byte(const ss_t &ss, const clone_t &clone, const frag_t &frag);

}  // namespace qvr
