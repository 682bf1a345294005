#include "tools/trace/number_list.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace velt
{
std::string FormatNumbers(std::span<const int> numbers)
{
    std::string text;
    for (const int number : numbers)
    {
        text += (text.empty() ? "" : " ") + std::to_string(number);
    }
    return text;
}

std::optional<std::vector<int>> ParseNumbers(std::string_view text, std::size_t count)
{
    std::vector<int> numbers;
    const char* at = text.data();
    const char* const last = at + text.size();
    while (numbers.size() < count)
    {
        int number = 0;
        const auto [end, error] = std::from_chars(at, last, number);
        if (error != std::errc())
        {
            return std::nullopt;
        }
        numbers.push_back(number);
        at = end;
        if (numbers.size() < count)
        {
            if (at == last || *at != ' ')
            {
                return std::nullopt;
            }
            ++at;
        }
    }
    return at == last ? std::optional(std::move(numbers)) : std::nullopt;
}

bool IsOrder(std::span<const int> numbers)
{
    std::vector<int> sorted(numbers.begin(), numbers.end());
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 0; i < sorted.size(); ++i)
    {
        if (sorted[i] != static_cast<int>(i))
        {
            return false;
        }
    }
    return true;
}
} // namespace velt
