#include "tools/trace/debug_lines.h"

#include "tools/trace/trace_line.h"

#include <cstddef>
#include <utility>

namespace velt
{
namespace
{
constexpr std::size_t kLongest = 60'000; // bytes; a record holds little more
constexpr std::int32_t kDetailLevel = 3;
} // namespace

std::vector<DebugLines::Line> DebugLines::Add(std::int64_t arrivalUs, std::uint32_t process,
                                              std::string_view piece)
{
    std::vector<Line> ended;
    while (!piece.empty())
    {
        const std::size_t end = piece.find_first_of("\r\n");
        const std::string_view part = piece.substr(0, end);
        piece.remove_prefix(part.size());
        const auto [place, fresh] = m_begun.try_emplace(process);
        Begun& begun = place->second;
        if (fresh)
        {
            begun.line.arrivalUs = arrivalUs;
            begun.line.process = process;
        }
        begun.line.text += part;
        begun.old = false;
        if (piece.empty() && begun.line.text.size() < kLongest)
        {
            break;
        }
        if (!begun.line.text.empty())
        {
            ended.push_back(std::move(begun.line));
        }
        m_begun.erase(place);
        piece.remove_prefix(piece.empty() ? 0 : 1);
    }
    return ended;
}

std::vector<DebugLines::Line> DebugLines::TakeOld()
{
    std::vector<Line> ended;
    for (auto place = m_begun.begin(); place != m_begun.end();)
    {
        if (!place->second.old)
        {
            place->second.old = true;
            ++place;
            continue;
        }
        ended.push_back(std::move(place->second.line));
        place = m_begun.erase(place);
    }
    return ended;
}

std::int32_t DebugLines::LevelOf(std::string_view text) noexcept
{
    const TraceLine line = ParseTraceLine(kTraceScopeLevel, text);
    const bool scope =
        line.kind == TraceLineKind::entry ||
        (line.kind == TraceLineKind::exit && text.find(" - return") != std::string_view::npos);
    return scope ? kTraceScopeLevel : kDetailLevel;
}
} // namespace velt
