// A save set in the making: a record that owns its texts and lists.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sample_site.h"

namespace qvr {

struct copy_draft {
  std::int64_t cloneid = 0;
  std::uint32_t flags = 0;
  std::vector<std::size_t> volumes;  // of the site, in the order of the fragments
};

struct saveset_draft {
  ss_t record;  // without texts, attributes and copies
  std::string name;
  attrlist attrs;
  std::vector<copy_draft> copies;
  const site_client *client = nullptr;
  std::uint64_t number = 0;  // in the order of making
};

// What makes some save sets special: applied to every `period`-th save set of a day's run, from
// the `phase`-th on, so that each kind is there whatever the size of the sample.
struct sample_trait {
  std::uint64_t period, phase;
  void (*apply)(saveset_draft &draft, sample_site &site, sample_random &random);
};
extern const std::vector<sample_trait> SAMPLE_TRAITS;

}  // namespace qvr
