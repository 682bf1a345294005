#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace velt::tool
{
/// The candidate that was most likely meant by a mistyped word: the one that the fewest letters
/// must be inserted, left out, replaced or swapped with their neighbour for, capitals aside.
/// Nothing when that would be more than a third of them. The first one counts of several that are
/// as near. Candidates are ASCII. Throws std::bad_alloc only.
std::optional<std::string_view> NearestWord(std::wstring_view word,
                                            std::span<const std::string_view> candidates);
} // namespace velt::tool
