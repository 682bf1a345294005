#include "tools/velt/nearest_word.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace velt::tool
{
namespace
{
/// More than that is no word of ours, and comparing takes time by its square.
constexpr std::size_t kLongest = 40;

wchar_t Small(wchar_t c) noexcept
{
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

/// How many letters differ, as above.
std::size_t DistanceOf(std::wstring_view word, std::string_view candidate)
{
    const std::size_t width = candidate.size() + 1;
    std::vector<std::size_t> table((word.size() + 1) * width);
    const auto at = [&](std::size_t row, std::size_t column) -> std::size_t& {
        return table[row * width + column];
    };
    const auto same = [&](std::size_t row, std::size_t column) {
        return Small(word[row - 1]) == static_cast<wchar_t>(candidate[column - 1]);
    };
    for (std::size_t row = 0; row <= word.size(); ++row)
    {
        for (std::size_t column = 0; column < width; ++column)
        {
            if (row == 0 || column == 0)
            {
                at(row, column) = row + column;
                continue;
            }
            at(row, column) = std::min({at(row - 1, column) + 1, at(row, column - 1) + 1,
                                        at(row - 1, column - 1) + (same(row, column) ? 0 : 1)});
            if (row > 1 && column > 1 && same(row, column - 1) && same(row - 1, column))
            {
                at(row, column) = std::min(at(row, column), at(row - 2, column - 2) + 1);
            }
        }
    }
    return table.back();
}
} // namespace

std::optional<std::string_view> NearestWord(std::wstring_view word,
                                            std::span<const std::string_view> candidates)
{
    std::optional<std::string_view> nearest;
    std::size_t least = 0;
    for (const std::string_view candidate : candidates)
    {
        const std::size_t limit = std::max(word.size(), candidate.size()) / 3;
        if (word.size() > kLongest)
        {
            continue;
        }
        const std::size_t distance = DistanceOf(word, candidate);
        if (distance <= limit && (!nearest || distance < least))
        {
            nearest = candidate;
            least = distance;
        }
    }
    return nearest;
}
} // namespace velt::tool
