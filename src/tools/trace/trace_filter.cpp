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

bool IsActive(const TraceRule& rule, TraceRuleKind kind) noexcept
{
    return rule.on && rule.kind == kind;
}
} // namespace

bool ContainsIgnoringCase(std::string_view text, std::string_view part) noexcept
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return Lower(a) == Lower(b); }) != text.end() ||
           part.empty();
}

bool TraceFilter::Accepts(const TraceEntry& entry, std::string_view process) const noexcept
{
    if (entry.fault == TraceRecordFault::none && entry.level > highestLevel)
    {
        return false;
    }
    if (!part.IsEmpty() && !part.IsIn(entry.text) && !part.IsIn(entry.source))
    {
        return false;
    }
    bool wanted = true; // without a rule that says which alone are
    for (const TraceRule& rule : rules)
    {
        if (IsActive(rule, TraceRuleKind::include))
        {
            wanted = rule.Means(entry, process);
            if (wanted)
            {
                break;
            }
        }
    }
    return wanted && std::none_of(rules.begin(), rules.end(), [&](const TraceRule& rule) {
               return (IsActive(rule, TraceRuleKind::exclude) ||
                       IsActive(rule, TraceRuleKind::forget)) &&
                      rule.Means(entry, process);
           });
}

bool TraceFilter::AcceptsAll() const noexcept
{
    return part.IsEmpty() && highestLevel == kAllLevels &&
           std::none_of(rules.begin(), rules.end(), [](const TraceRule& rule) {
               return rule.on && rule.kind != TraceRuleKind::highlight;
           });
}

bool IsForgotten(const TraceRules& rules, const TraceEntry& entry,
                 std::string_view process) noexcept
{
    return std::any_of(rules.begin(), rules.end(), [&](const TraceRule& rule) {
        return IsActive(rule, TraceRuleKind::forget) && rule.Means(entry, process);
    });
}

std::optional<int> HighlightOf(const TraceRules& rules, const TraceEntry& entry,
                               std::string_view process) noexcept
{
    const auto found = std::find_if(rules.begin(), rules.end(), [&](const TraceRule& rule) {
        return IsActive(rule, TraceRuleKind::highlight) && rule.Means(entry, process);
    });
    return found != rules.end() ? std::optional(found->color) : std::nullopt;
}
} // namespace velt
