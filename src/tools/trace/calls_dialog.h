#pragma once

#include "tools/trace/call_times.h"
#include "tools/trace/list_dialog.h"
#include "tools/trace/resource_ids.h"

#include <windows.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace velt
{
/// The window with the times of calls by function. It stays open beside the main window.
class CallsDialog final : public ListDialog
{
public:
    struct Content
    {
        std::string about; // whose calls these are
        std::vector<CallTimes> times;
    };

    /// `collect` is asked to have SetContent called, soon or at once; `go` is told which record
    /// somebody wants to see.
    CallsDialog(std::function<void()> collect, std::function<void(std::uint64_t)> go)
        : ListDialog(VELT_CALLS_DIALOG, VELT_ID_CALLS),
          m_collect(std::move(collect)),
          m_go(std::move(go))
    {
    }

    /// Shows it and asks for its content. Throws SystemException::Win32 and std::bad_alloc.
    void Show(HWND owner);

    /// Shows these; nothing happens when the window is closed. Throws std::bad_alloc.
    void SetContent(Content content);

private:
    void Build() override;
    void OnCommand(UINT command, UINT code) override;
    void OnNotify(LPARAM notification) override;
    void OnClosed() override;

    void Collect();
    void SortBy(int column);
    void Fill();
    void Go();
    void Save();

    std::function<void()> m_collect;
    std::function<void(std::uint64_t)> m_go;
    Content m_content;
    CallTimesOrder m_order = CallTimesOrder::total;
};
} // namespace velt
