#pragma once

#include "tools/trace/trace_session.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <string>

namespace velt
{
/// The viewer's status bar: how many records there are, are shown, have gone and are malformed, and
/// what is to be said about the selection.
class StatusBar
{
public:
    /// The parent owns its window. Throws SystemException::Win32.
    explicit StatusBar(HWND parent);

    StatusBar(const StatusBar&) = delete;
    StatusBar& operator=(const StatusBar&) = delete;

    ~StatusBar() = default;

    HWND Window() const noexcept
    {
        return m_window;
    }

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look);

    /// Shows the counts; `shown` rows are in the list, and `state` says more about them.
    void ShowCounts(const TraceSession& session, std::size_t shown, const std::string& state);

    /// Shows a text about the selection, or about what was last done.
    void Say(const std::string& text);

private:
    static LRESULT CALLBACK BarProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                    UINT_PTR id, DWORD_PTR self) noexcept;
    void PaintDark() const noexcept;
    void Set(std::size_t part, const std::string& text);

    HWND m_window;
    const WindowLook* m_look = nullptr;
    std::array<std::string, 5> m_texts; // as they are shown
};
} // namespace velt
