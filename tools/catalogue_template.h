// The source of a message catalogue, for gencat (POSIX).
#pragma once

#include <string>

#include "message_scan.h"

namespace qvr {

inline constexpr int CATALOGUE_SET_SIZE = 10000;

// A template for translators: the header messages, then every message in its set under a comment
// that names its source. A text that shares its id with another stands in a comment.
std::string catalogue_template(const message_scan &scan, const std::string &version);

}  // namespace qvr
