// The columns of a report that names none.
#pragma once

#include <string_view>
#include <vector>

#include "settings.h"

namespace qvr {

// Report specifications that add up to the default report of these options; none when they have a
// report of their own.
std::vector<std::string_view> default_report(const settings_t &settings);

}  // namespace qvr
