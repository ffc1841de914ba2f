// Completion for shells, from the tables of the command.
#pragma once

#include <string>

namespace qvr {

std::string bash_completion();
std::string zsh_completion();

}  // namespace qvr
