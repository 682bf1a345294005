#pragma once

#include "tools/trace/calls_dialog.h"
#include "tools/trace/dark_menu.h"
#include "tools/trace/filter_bar.h"
#include "tools/trace/record_list.h"
#include "tools/trace/row_search.h"
#include "tools/trace/rules_dialog.h"
#include "tools/trace/status_bar.h"
#include "tools/trace/trace_marks.h"
#include "tools/trace/trace_options.h"
#include "tools/trace/trace_session.h"
#include "tools/trace/trace_view.h"
#include "tools/trace/viewer_settings.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <shellapi.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace velt
{
/// The viewer's window: menu, tool bar, filter bar, the list of records, the whole text of the
/// selected one, and the counts.
class MainWindow final : private TraceReceiverEvents
{
public:
    /// By this another viewer finds it.
    static constexpr wchar_t kClass[] = L"VeltTraceViewer";

    /// Shows the window. Throws SystemException::Win32.
    MainWindow(const TraceOptions& options, int showCommand);

    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    ~MainWindow();

    /// Runs until the window is closed.
    void Run();

private:
    static constexpr UINT kArrived = WM_APP;
    static constexpr UINT kSelectionChanged = WM_APP + 1;
    static constexpr UINT kBusyMs = USER_TIMER_MINIMUM;
    static constexpr std::size_t kSlice = 10'000; // records between two looks at the keys
    static constexpr wchar_t kMessageTitle[] = L"Trace viewer";

    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    HWND MakeFrame();
    HWND MakeDetails() const;

    void OnArrival() noexcept override;
    void OnCloseAsked() noexcept override;

    std::optional<LRESULT> Handle(UINT message, WPARAM wParam, LPARAM lParam);
    void OnCommand(UINT command, UINT code);
    std::optional<LRESULT> OnNotify(LPARAM notification);
    void OnTick();
    bool FilterSome();
    void Begin(std::function<bool()> work);
    void WorkSome();
    void OnSelection();
    void OnEnter();
    void OnEscape();

    std::optional<LRESULT> OnToolbarDraw(LPARAM notification) const noexcept;
    void Remember();
    void ChooseRecordFont();
    void ShowAbout() const;
    void ListenToDebugOutput(bool on);

    void RefreshIn(UINT periodMs) noexcept;
    void ApplyLook();
    void Layout() noexcept;
    void ApplyFilter();
    void SetRules(const TraceRules& rules);
    void Find(SearchDirection direction);
    void ToggleMarks();
    void GoToMark(SearchDirection direction);
    void CollectCalls();
    void GoTo(std::uint64_t sequence);
    bool Show(std::uint64_t sequence);
    void SetPaused(bool paused);
    void SetFollowing(bool following) noexcept;
    void Check(UINT command, bool checked) const noexcept;
    void Clear();
    void Copy();
    void SelectAll() noexcept;
    void Save();
    void Open(const std::wstring& path);
    void OpenAsked();
    void OnDrop(HDROP drop);
    void Jump();
    void ShowHelp() const;
    void ShowStatus();

    bool m_built = false; // first: making the windows already sends messages
    HWND m_window = nullptr;
    ViewerSettings m_settings;
    TraceSession m_session;
    TraceView m_view;
    TraceMarks m_marks;
    TraceRules m_rules;
    bool m_rulesAreOptions; // of the command line, and not to be remembered
    WindowLook m_look;
    DarkMenu m_menu;
    HWND m_toolbar;
    FilterBar m_bar;
    RecordList m_list;
    HWND m_details;
    StatusBar m_status;
    RulesDialog m_rulesDialog;
    CallsDialog m_callsDialog;
    bool m_following = true;
    bool m_filtering = false;        // not all rows of the filter are there yet
    std::optional<UINT> m_refreshMs; // of the timer that runs

    // What goes over many records, one after the other: each is called again and again, does some
    // milliseconds of its work, and returns whether that was all. Between two calls the window does
    // everything else, so that nobody who types waits; only what arrives waits in the receiver, so
    // that the store drops nothing meanwhile.
    std::deque<std::function<bool()>> m_work;
    bool m_collecting = false; // one of them is for the calls

    std::optional<std::uint64_t> m_pausedAt; // the first record that is not shown until it goes on
    bool m_selectionPosted = false;
    std::string m_selectionText;                // what was last said about it...
    std::optional<std::uint64_t> m_selectionOf; // ...and the record that had the focus
    int m_ticksWithoutSender = 0;
};
} // namespace velt
