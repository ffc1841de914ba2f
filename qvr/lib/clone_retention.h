// How long a save set and each of its clones are kept.
#pragma once

#include <cstdint>

#include "records.h"

namespace qvr {

inline constexpr std::string_view ATTR_CLONE_RETENTION = "*ss clone retention";

// The base (seconds since 1970) and the delta behind it that bound a clone's retention.
struct retention_t {
  std::int64_t base = 0;
  std::uint32_t delta = 0;  // 0: no time; 0xffffffff: forever
};

// What the attribute "*ss clone retention" says of the clone, or else the save set's own. The clone
// may be absent. Any thread.
retention_t clone_retention(const ss_t &ss, const clone_t *clone);
// The time at which the clone's retention ends; 0 for a delta of 0.
std::int64_t clone_retention_time(const ss_t &ss, const clone_t *clone);

// The plain sum of the save set's time of insertion and the delta; forever where it leaves 64 bits.
std::int64_t ss_limit(const ss_t &ss, std::uint32_t delta);

// True when the record's attributes say that its browse or retention limit is forever, whatever
// ssbrowse and ssretent hold.
bool ss_browse_forever(const ss_t &ss);
bool ss_retent_forever(const ss_t &ss);

}  // namespace qvr
