#pragma once

#include "tools/trace/trace_rule.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <optional>
#include <vector>

namespace velt
{
/// What the viewer remembers for a user from one run to the next, in the user's registry. What is
/// not there, or makes no sense, is as at first.
struct ViewerSettings
{
    static constexpr std::size_t kColumns = 5;

    std::optional<RECT> place; // of the window when it is not maximized, in pixels
    bool maximized = false;
    std::optional<std::vector<int>> columnWidths; // at 96 dots an inch
    std::optional<std::vector<int>> columnOrder;
    std::optional<FontChoice> font;
    TraceRules rules;

    static ViewerSettings Load();

    /// Where the registry refuses, nothing is remembered.
    void Save() const;

    /// Forgets all of it.
    static void Forget() noexcept;
};
} // namespace velt
