#pragma once

#include <string>
#include <string_view>

namespace velt
{
/// The path of one of several files: itself for number 1, "folder/trace.2.csv" for number 2 of
/// "folder/trace.csv". Throws std::bad_alloc.
std::string NumberedName(std::string_view path, int number);
} // namespace velt
