// The one answer to memory that cannot be had.
#pragma once

namespace qvr {

// Fetches the text while there is memory; from now on an allocation that fails in any thread prints
// it and ends the process with status 1.
void install_out_of_memory();

}  // namespace qvr
