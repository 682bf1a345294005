#pragma once

#include "tools/trace/trace_filter.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <string>

namespace velt
{
/// The row of labels and fields above the list: filter text, level and highlight. The fields are
/// children of the main window, which gets their notifications.
class FilterBar
{
public:
    /// Throws SystemException::Win32.
    FilterBar(HWND parent, const TraceFilter& start);

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look);

    /// Puts the fields into a row that starts here; returns its height.
    int Place(int left, int top, int width, const WindowLook& look) noexcept;

    /// What the fields say. Throws std::bad_alloc.
    TraceFilter Filter() const;
    TextPattern Highlight() const;

    HWND FilterField() const noexcept
    {
        return m_filter;
    }

    HWND HighlightField() const noexcept
    {
        return m_highlight;
    }

    bool IsTextField(HWND window) const noexcept
    {
        return window && (window == m_filter || window == m_highlight);
    }

private:
    // A label stands before its field, so that its letter leads there and a screen reader names
    // the field by it.
    HWND m_filterLabel;
    HWND m_filter;
    HWND m_levelLabel;
    HWND m_level;
    HWND m_highlightLabel;
    HWND m_highlight;
};
} // namespace velt
