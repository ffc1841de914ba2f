// A catalogue of many volumes, which no sample has.
#pragma once

#include <cstdint>
#include <string>

namespace qvr::bench {

// Writes a catalogue file with that many volumes, each with `savesets` save sets, behind `now`.
// The clients and the configuration are the sample's.
bool write_volumes(const std::string &file, unsigned volumes, unsigned savesets, std::int64_t now);

}  // namespace qvr::bench
