#include "tools/trace/trace_filter.h"

#include <algorithm>

namespace velt
{
namespace
{
constexpr char Lower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
} // namespace

bool ContainsIgnoringCase(std::string_view text, std::string_view part) noexcept
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return Lower(a) == Lower(b); }) != text.end() ||
           part.empty();
}

bool TraceFilter::Accepts(const TraceEntry& entry) const noexcept
{
    if (entry.fault == TraceRecordFault::none && entry.level > highestLevel)
    {
        return false;
    }
    return part.empty() || ContainsIgnoringCase(entry.text, part) ||
           ContainsIgnoringCase(entry.source, part);
}
} // namespace velt
