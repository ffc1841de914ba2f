// How much memory operator new has given out, and the most that it was at one time.
#pragma once

#include <cstddef>

namespace qvr::test {

// Starts the peak anew at what is held now, which is the result.
std::size_t meter_start();
// The most that was held at one time since then.
std::size_t meter_peak();

}  // namespace qvr::test
