#pragma once

#include "tools/common/console.h"
#include "tools/velt/progress_line.h"

#include <string>

namespace velt::tool
{
/// One line of a terminal that is written over and over; nothing when there is no terminal.
class ProgressDisplay
{
public:
    explicit ProgressDisplay(const Console& console) noexcept;

    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    /// Clears the line.
    ~ProgressDisplay();

    bool IsShown() const noexcept
    {
        return m_console.IsTerminal();
    }

    void Show(const FetchProgress& progress);

    /// Clears the line, so that something else can be written.
    void Clear() noexcept;

private:
    const Console& m_console;
    std::size_t m_shown = 0; // characters of the line
};

/// What a status of the internet API means to a user, such as "receiving"; "working" for those that
/// mean nothing to one. A constant.
const char* PhaseOf(unsigned long status) noexcept;
} // namespace velt::tool
