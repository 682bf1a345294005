#include "tools/velt/findings.h"

#include <algorithm>
#include <utility>

namespace velt::tool
{
namespace
{
std::string_view NameOf(Findings::Level level) noexcept
{
    switch (level)
    {
    case Findings::Level::ok:
        return "ok";
    case Findings::Level::warning:
        return "warning";
    default:
        return "error";
    }
}
} // namespace

void Findings::Add(Level level, std::string_view about, std::string text)
{
    m_findings.push_back({level, about, std::move(text)});
}

bool Findings::HasError() const noexcept
{
    return std::any_of(m_findings.begin(), m_findings.end(),
                       [](const Finding& finding) { return finding.level == Level::error; });
}

std::string Findings::Text() const
{
    constexpr std::size_t kWidth = 9; // of the longest level, and two blanks
    std::string text;
    for (const Finding& finding : m_findings)
    {
        const std::string_view level = NameOf(finding.level);
        text.append(level).append(kWidth - level.size(), ' ').append(finding.text).append("\n");
    }
    return text;
}

ReportValue Findings::Parts() const
{
    ReportValue::Parts parts;
    for (const Finding& finding : m_findings)
    {
        Report& part = parts.emplace_back();
        part.Add("level", NameOf(finding.level));
        part.Add("about", finding.about);
        part.Add("text", finding.text);
    }
    return {std::move(parts)};
}
} // namespace velt::tool
