#pragma once

#include <windows.h>

namespace velt
{
/// Has an object selected into a context until the end of the scope.
class SelectScope
{
public:
    SelectScope(HDC context, HGDIOBJ object) noexcept
        : m_context(context),
          m_old(::SelectObject(context, object))
    {
    }

    SelectScope(const SelectScope&) = delete;
    SelectScope& operator=(const SelectScope&) = delete;

    ~SelectScope()
    {
        if (m_old)
        {
            ::SelectObject(m_context, m_old);
        }
    }

    /// Whether the context took the object.
    explicit operator bool() const noexcept
    {
        return m_old != nullptr;
    }

private:
    HDC m_context;
    HGDIOBJ m_old;
};

/// The context of a window's client area, until the end of the scope; of the screen for no window.
class WindowDc
{
public:
    explicit WindowDc(HWND window) noexcept : m_window(window), m_context(::GetDC(window)) {}

    WindowDc(const WindowDc&) = delete;
    WindowDc& operator=(const WindowDc&) = delete;

    ~WindowDc()
    {
        if (m_context)
        {
            ::ReleaseDC(m_window, m_context);
        }
    }

    /// Null when the system has none.
    HDC Get() const noexcept
    {
        return m_context;
    }

private:
    HWND m_window;
    HDC m_context;
};

/// What stands between BeginPaint and EndPaint.
class PaintScope
{
public:
    explicit PaintScope(HWND window) noexcept
        : m_window(window),
          m_context(::BeginPaint(window, &m_paint))
    {
    }

    PaintScope(const PaintScope&) = delete;
    PaintScope& operator=(const PaintScope&) = delete;

    ~PaintScope()
    {
        ::EndPaint(m_window, &m_paint);
    }

    /// Null when the system has none.
    HDC Get() const noexcept
    {
        return m_context;
    }

private:
    HWND m_window;
    PAINTSTRUCT m_paint{};
    HDC m_context;
};
} // namespace velt
