// A generated catalogue: the weeks of a small site as they lie behind the present day.
#pragma once

#include <cstdint>
#include <string>

#include "catalogue_sink.h"

namespace qvr {

struct sample_options {
  std::uint64_t seed = 1;
  unsigned clients = 8;
  unsigned days = 35;
  // Save sets wanted at least; ordinary ones are added, over the same clients and days, until there
  // are so many. 0: no more than the site makes.
  std::uint64_t savesets = 0;
  std::string server = "localhost";  // the installation's host, which is a client too
  std::int64_t midnight = 0;         // start of the present day, seconds since 1970
};

// Reads "SEED[:CLIENTS[:DAYS]]".
bool parse_sample(const std::string &text, sample_options &options);
// The start of the day of `now` in the local time zone.
std::int64_t local_midnight(std::int64_t now);

// Gives the same records for the same options. All save times lie before `midnight` plus one
// minute.
void make_sample(const sample_options &options, catalogue_sink &sink);

}  // namespace qvr
