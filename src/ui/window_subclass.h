#pragma once

#include <windows.h>

namespace velt
{
/// Puts a procedure of ours before that of a window, and takes it away again. One object takes one
/// window at a time, and a window is taken once at a time. Lives on the thread of the window.
///
/// Not by SetWindowSubclass: the common controls of version 5, which a host without a manifest has,
/// need not export it by its name, and a library whose import is missing does not load at all.
class WindowSubclass
{
public:
    /// Receives the window's messages for `owner`. On WM_NCDESTROY it lets Detach run at the
    /// latest.
    using Handler = LRESULT (*)(void* owner, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

    WindowSubclass() = default;

    WindowSubclass(const WindowSubclass&) = delete;
    WindowSubclass& operator=(const WindowSubclass&) = delete;

    /// Detaches.
    ~WindowSubclass();

    /// Takes a window; false, and nothing has changed, when it cannot be taken.
    bool Attach(HWND window, Handler handler, void* owner) noexcept;

    /// Gives the window its own procedure back, unless another one has been put before ours
    /// meanwhile: ours passes everything on then. Nothing happens without a window.
    void Detach() noexcept;

    /// The window; null when there is none.
    HWND Window() const noexcept;

    /// The window's own procedure, for CallWindowProcW.
    WNDPROC Original() const noexcept;

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam,
                                      LPARAM lParam) noexcept;

    HWND m_window = nullptr;
    WNDPROC m_original = &::DefWindowProcW;
    Handler m_handler = nullptr;
    void* m_owner = nullptr;
};
} // namespace velt
