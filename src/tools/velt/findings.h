#pragma once

#include "tools/velt/report.h"

#include <string>
#include <string_view>
#include <vector>

namespace velt::tool
{
/// What somebody who looks after a machine needs to know of it, each in one line that also says
/// what to do.
class Findings
{
public:
    enum class Level
    {
        ok,
        warning, // works, and may not be what is wanted
        error,   // does not work
    };

    /// `about` is one word for programs; `text` is UTF-8.
    void Add(Level level, std::string_view about, std::string text);

    bool HasError() const noexcept;

    /// For people, a line each: the level and the text.
    std::string Text() const;

    /// For programs: `level`, `about` and `text` of each.
    ReportValue Parts() const;

private:
    struct Finding
    {
        Level level;
        std::string_view about; // a literal
        std::string text;
    };

    std::vector<Finding> m_findings;
};
} // namespace velt::tool
