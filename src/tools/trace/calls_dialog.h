#pragma once

#include "tools/trace/call_times.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace velt
{
/// The window with the times of calls by function. It stays open beside the main window.
class CallsDialog
{
public:
    struct Content
    {
        std::string about; // whose calls these are
        std::vector<CallTimes> times;
    };

    /// `collect` is asked for the content, `go` told which record somebody wants to see.
    CallsDialog(std::function<Content()> collect, std::function<void(std::uint64_t)> go)
        : m_collect(std::move(collect)),
          m_go(std::move(go))
    {
    }

    CallsDialog(const CallsDialog&) = delete;
    CallsDialog& operator=(const CallsDialog&) = delete;

    ~CallsDialog();

    /// Shows it with what there is now. Throws SystemException::Win32 and std::bad_alloc.
    void Show(HWND owner);

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look) noexcept;

    /// Whether a message was for one of its controls.
    bool Takes(MSG& message) const noexcept
    {
        return m_window && ::IsDialogMessageW(m_window, &message);
    }

private:
    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    INT_PTR Handle(UINT message, WPARAM wParam, LPARAM lParam);
    void Build();
    void OnCommand(UINT command, UINT code);
    void OnNotify(LPARAM notification);
    void Collect();
    void SortBy(int column);
    void Fill();
    void Go();
    void Save();

    HWND Item(int id) const noexcept
    {
        return ::GetDlgItem(m_window, id);
    }

    std::function<Content()> m_collect;
    std::function<void(std::uint64_t)> m_go;
    Content m_content;
    CallTimesOrder m_order = CallTimesOrder::total;
    HWND m_window = nullptr;
    const WindowLook* m_look = nullptr;
};
} // namespace velt
