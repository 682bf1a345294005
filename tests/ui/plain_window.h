#pragma once

#include <windows.h>

namespace velt::test
{
/// A window that is not shown and does nothing, for messages or in the place of a dialog.
class PlainWindow
{
public:
    PlainWindow() noexcept
        : m_window(::CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                                     nullptr, nullptr))
    {
    }

    PlainWindow(const PlainWindow&) = delete;
    PlainWindow& operator=(const PlainWindow&) = delete;

    ~PlainWindow()
    {
        ::DestroyWindow(m_window);
    }

    HWND Window() const noexcept
    {
        return m_window;
    }

private:
    HWND m_window;
};
} // namespace velt::test
