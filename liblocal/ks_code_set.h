// Between the locale's code set and the internal one, for the system interfaces that speak the
// locale's: paths and the environment.
#pragma once

#include <string>
#include <string_view>

namespace qvr {

// A text that does not convert comes back as it is. Plain ASCII is never touched.
std::string ks_text_to_internal(std::string_view text);
std::string ks_path_to_system(std::string_view path);

}  // namespace qvr
