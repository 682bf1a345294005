#pragma once

#include "foundation/unique_handle.h"
#include "tools/common/console.h"

#include <windows.h>

namespace velt::tool
{
/// A window that traced libraries find when they are loaded, on a thread of its own, so that it
/// takes lines while everything else waits; each line goes to a console. Throws CommandFailure.
class TraceWindow
{
public:
    /// The console outlives the window.
    explicit TraceWindow(const Console& console);

    TraceWindow(const TraceWindow&) = delete;
    TraceWindow& operator=(const TraceWindow&) = delete;

    ~TraceWindow();

private:
    static DWORD CALLBACK ThreadEntry(void* window) noexcept;
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam,
                                      LPARAM lParam) noexcept;

    void RunThread();
    void Print(const COPYDATASTRUCT& data) const noexcept;

    const Console& m_console;
    HWND m_window = nullptr;       // set by the thread before it says that it is ready
    DWORD m_error = ERROR_SUCCESS; // likewise; why there is no window
    UniqueKernelObject m_ready;    // manual-reset
    UniqueKernelObject m_thread;
};
} // namespace velt::tool
