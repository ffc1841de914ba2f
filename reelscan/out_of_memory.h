// The one answer to memory that cannot be had.
#pragma once

namespace qvr {

// From now on an allocation that fails in any thread prints the English text and ends the process
// with status 1. The first thing that the program does.
void install_out_of_memory();
// Fetches the text in the language of the user, while there is memory.
void translate_out_of_memory();

}  // namespace qvr
