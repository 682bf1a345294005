#pragma once

#include <string>
#include <vector>

namespace velt::torture
{
/// Runs several processes at the same time for long; main.cpp says how. Returns the program's exit
/// code: kEnded when nothing was found.
unsigned RunSoak(const std::vector<std::string>& arguments);

/// One of them.
unsigned RunSoakChild(const std::vector<std::string>& arguments);
} // namespace velt::torture
