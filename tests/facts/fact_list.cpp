#include "tests/facts/fact_list.h"

#include <stdexcept>

namespace velt::facts
{
std::string ListEntry::Text(const std::string& field) const
{
    const auto found = fields.find(field);
    return found == fields.end() ? std::string() : found->second;
}

std::vector<ListEntry> ParseFactList(std::string_view text)
{
    std::vector<ListEntry> entries;
    while (!text.empty())
    {
        const auto end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
        {
            line.remove_suffix(1);
        }
        if (line.empty() || line.front() == '#')
        {
            continue;
        }
        if (line.front() == '[' && line.back() == ']')
        {
            entries.push_back({std::string(line.substr(1, line.size() - 2)), {}});
            continue;
        }
        const auto colon = line.find(": ");
        if (colon == std::string_view::npos || entries.empty())
        {
            throw std::runtime_error("no field: " + std::string(line));
        }
        entries.back().fields[std::string(line.substr(0, colon))] = line.substr(colon + 2);
    }
    return entries;
}

bool IsOneOf(std::string_view answer, std::string_view column)
{
    constexpr std::string_view kOr = " | ";
    for (;;)
    {
        const auto end = column.find(kOr);
        if (column.substr(0, end) == answer)
        {
            return true;
        }
        if (end == std::string_view::npos)
        {
            return false;
        }
        column.remove_prefix(end + kOr.size());
    }
}
} // namespace velt::facts
