// Who this program is to the auth servers. The lab's daemons use the same header.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qvr {

inline constexpr int REELSCAN_APPLICATION = 3;

// The key that an auth server hides a credential blob with on its way to this program. It stands in
// the program's text: nobody's secret rests on it.
inline constexpr std::string_view REELSCAN_PROCESS_KEY = "reelscan/qvr process key 0000001";
static_assert(REELSCAN_PROCESS_KEY.size() == 32);

}  // namespace qvr
