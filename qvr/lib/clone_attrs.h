// Attributes whose values say to which clones they apply: "value:cloneid cloneid ...".
#pragma once

#include <string_view>
#include <vector>

#include "records.h"

namespace qvr {

inline constexpr std::string_view ATTR_POLICY = "*policy name";
inline constexpr std::string_view ATTR_WORKFLOW = "*policy workflow name";
inline constexpr std::string_view ATTR_ACTION = "*policy action name";
inline constexpr std::string_view ATTR_ACTION_RETENTION = "*policy action BH retention time";
inline constexpr std::string_view ATTR_LOCK_MODE = "*BH Retention Lock Mode";

// The text in front of the ":" of the first value that names the clone; with no clone the first
// value's. A null view (data() == nullptr) when there is none. Borrowed from the record. Any
// thread.
std::string_view clone_attr(const clone_t *clone, const ss_t &ss, std::string_view attribute);
// The texts of every value that names the clone; with no clone of every value.
std::vector<std::string_view> clone_attr_all(const clone_t *clone, const ss_t &ss,
                                             std::string_view attribute);

}  // namespace qvr
