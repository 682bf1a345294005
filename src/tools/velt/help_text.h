#pragma once

#include <string>
#include <string_view>

namespace velt::tool
{
/// Help made from the table of commands: on one command by its name, on all that share a first
/// word, or on the program for an empty topic. An unknown topic is the program's.
/// Throws std::bad_alloc only.
std::string HelpText(std::string_view topic);
} // namespace velt::tool
