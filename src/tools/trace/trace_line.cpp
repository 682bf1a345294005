#include "tools/trace/trace_line.h"

#include <algorithm>

namespace velt
{
namespace
{
constexpr std::string_view kDivider = " - ";

/// Takes digits from the front and what must follow them; false when they are not there.
bool TakeNumber(std::string_view& text, std::string_view end) noexcept
{
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits == 0 || !text.substr(digits).starts_with(end))
    {
        return false;
    }
    text.remove_prefix(digits + end.size());
    return true;
}

/// The text after a time prefix "h:m:s.mmm : ", or the whole text without one.
std::string_view AfterTime(std::string_view text) noexcept
{
    std::string_view rest = text;
    const bool found = TakeNumber(rest, ":") && TakeNumber(rest, ":") && TakeNumber(rest, ".") &&
                       TakeNumber(rest, " : ");
    return found ? rest : text;
}
} // namespace

TraceLine ParseTraceLine(std::int32_t level, std::string_view text) noexcept
{
    TraceLine line;
    std::string_view rest = AfterTime(text);
    line.indentation = std::min(rest.find_first_not_of(' '), rest.size());
    if (level != kTraceScopeLevel)
    {
        return line;
    }
    rest.remove_prefix(line.indentation);
    const std::size_t divider = rest.find(kDivider);
    if (divider == std::string_view::npos || divider == 0)
    {
        return line;
    }
    line.name = rest.substr(0, divider);
    line.kind = rest.substr(divider + kDivider.size()) == "enter" ? TraceLineKind::entry
                                                                  : TraceLineKind::exit;
    return line;
}
} // namespace velt
