#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// Replaces the placeholders "%0", "%1", ... of a text by the arguments.
///
/// By design, one search position serves all arguments: it moves to just after each inserted
/// argument and never back. Placeholders are therefore filled in ascending order only, and an
/// argument's own text is never searched. A placeholder left of the position stays as it is.
/// Every text is valid. Throws std::bad_alloc only.
std::string FormatPositional(std::string_view text, const std::vector<std::string>& arguments);
} // namespace velt
