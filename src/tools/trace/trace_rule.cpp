#include "tools/trace/trace_rule.h"

#include <charconv>
#include <system_error>
#include <utility>

namespace velt
{
namespace
{
constexpr std::string_view kLevel = "level:";
constexpr std::string_view kSource = "source:";
constexpr std::string_view kProcess = "process:";
constexpr std::string_view kText = "text:";
constexpr std::string_view kHighlight = "highlight";

constexpr std::array<std::pair<std::string_view, TraceRuleKind>, 3> kKinds{{
    {"include", TraceRuleKind::include},
    {"exclude", TraceRuleKind::exclude},
    {"forget", TraceRuleKind::forget},
}};

bool BeginsWithTerm(std::string_view line) noexcept
{
    return line.starts_with(kLevel) || line.starts_with(kSource) || line.starts_with(kProcess) ||
           line.starts_with(kText);
}

void AppendTerm(std::string& line, std::string_view name, const std::string& value)
{
    line += name;
    if (value.find(' ') == std::string::npos && !value.starts_with('"'))
    {
        line.append(value) += ' ';
        return;
    }
    line += '"';
    for (const char c : value)
    {
        line.append(c == '"' ? 2 : 1, c);
    }
    line += "\" ";
}

/// Takes what stands between quotation marks, of which two stand for one; none when the last one is
/// missing.
std::optional<std::string> TakeQuoted(std::string_view& line)
{
    std::string value;
    for (std::size_t at = 1; at < line.size(); ++at)
    {
        if (line[at] != '"')
        {
            value += line[at];
        }
        else if (line.substr(at + 1).starts_with('"'))
        {
            value += line[at++];
        }
        else
        {
            line.remove_prefix(at + 1);
            return value;
        }
    }
    return std::nullopt;
}

/// Takes what stands behind a term's name, with the blank that follows; none when a quotation mark
/// stays open.
std::optional<std::string> TakeValue(std::string_view& line)
{
    std::optional<std::string> value;
    if (line.starts_with('"'))
    {
        value = TakeQuoted(line);
    }
    else
    {
        value = line.substr(0, line.find(' '));
        line.remove_prefix(value->size());
    }
    line.remove_prefix(line.starts_with(' ') ? 1 : 0);
    return value;
}
} // namespace

bool TraceRule::Means(const TraceEntry& entry, std::string_view itsProcess) const noexcept
{
    if (level && (entry.fault != TraceRecordFault::none || entry.level != *level))
    {
        return false;
    }
    return source.IsIn(entry.source) && process.IsIn(itsProcess) && text.IsIn(entry.text);
}

std::string FormatRuleTerms(const TraceRule& rule)
{
    std::string line;
    if (rule.level)
    {
        AppendTerm(line, kLevel, std::to_string(*rule.level));
    }
    if (!rule.source.IsEmpty())
    {
        AppendTerm(line, kSource, rule.source.Text());
    }
    if (!rule.process.IsEmpty())
    {
        AppendTerm(line, kProcess, rule.process.Text());
    }
    if (BeginsWithTerm(rule.text.Text()))
    {
        line += kText;
    }
    line += rule.text.Text();
    if (rule.text.IsEmpty() && !line.empty())
    {
        line.pop_back(); // the blank behind the last term
    }
    return line;
}

bool ParseRuleTerms(std::string_view line, TraceRule& rule)
{
    TraceRule parsed;
    parsed.on = rule.on;
    parsed.kind = rule.kind;
    parsed.color = rule.color;
    while (BeginsWithTerm(line) && !line.starts_with(kText))
    {
        const std::size_t colon = line.find(':') + 1;
        const std::string_view name = line.substr(0, colon);
        line.remove_prefix(colon);
        const std::optional<std::string> value = TakeValue(line);
        if (!value)
        {
            return false;
        }
        if (name != kLevel)
        {
            (name == kSource ? parsed.source : parsed.process) = *value;
            continue;
        }
        std::int32_t level = 0;
        const char* const last = value->data() + value->size();
        const auto [end, error] = std::from_chars(value->data(), last, level);
        if (error != std::errc() || end != last)
        {
            return false;
        }
        parsed.level = level;
    }
    line.remove_prefix(line.starts_with(kText) ? kText.size() : 0);
    parsed.text = std::string(line);
    rule = std::move(parsed);
    return true;
}

std::string FormatRule(const TraceRule& rule)
{
    std::string line = rule.on ? "+" : "-";
    if (rule.kind == TraceRuleKind::highlight)
    {
        line.append(kHighlight) += std::to_string(rule.color + 1);
    }
    for (const auto& [name, kind] : kKinds)
    {
        line.append(kind == rule.kind ? name : "");
    }
    return line + ' ' + FormatRuleTerms(rule);
}

std::optional<TraceRule> ParseRule(std::string_view line)
{
    const std::size_t end = line.find(' ');
    if (end == std::string_view::npos || (line.front() != '+' && line.front() != '-'))
    {
        return std::nullopt;
    }
    TraceRule rule;
    rule.on = line.front() == '+';
    const std::string_view name = line.substr(1, end - 1);
    bool known = false;
    for (const auto& [kindName, kind] : kKinds)
    {
        if (name == kindName)
        {
            rule.kind = kind;
            known = true;
        }
    }
    if (name.size() == kHighlight.size() + 1 && name.starts_with(kHighlight))
    {
        rule.kind = TraceRuleKind::highlight;
        rule.color = name.back() - '1';
        known = rule.color >= 0 && rule.color < TraceRule::kColors;
    }
    return known && ParseRuleTerms(line.substr(end + 1), rule) ? std::optional(rule) : std::nullopt;
}
} // namespace velt
