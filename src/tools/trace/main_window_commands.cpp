// What the viewer's window does when it is told to: by its menu, its buttons and its keys.

#include "foundation/velt_version.h"
#include "foundation/wide_text.h"
#include "tools/trace/clipboard.h"
#include "tools/trace/file_opener.h"
#include "tools/trace/main_window.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/row_saver.h"
#include "tools/trace/selection_text.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/trace_pairs.h"
#include "tools/trace/wait_cursor.h"

#include <commctrl.h>
#include <commdlg.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace velt
{
namespace
{
constexpr wchar_t kHelp[] =
    L"Programs that load the component after this viewer was started send it their trace.\r\n\r\n"
    L"Ctrl+F\tfilter by text or source\r\n"
    L"Ctrl+D\tfilters and highlights, several at once\r\n"
    L"Ctrl+H\thighlight a text; F3, Shift+F3 find it\r\n"
    L"Ctrl+M\tmark records; F2, Shift+F2 go from mark to mark\r\n"
    L"Ctrl+P\tpause and go on; records are kept meanwhile\r\n"
    L"Ctrl+E\tfollow the newest record\r\n"
    L"Ctrl+J, Enter\tjump between an entry line and its exit line\r\n"
    L"Ctrl+T\tslowest calls: times by function\r\n"
    L"Ctrl+C\tcopy the selected records\r\n"
    L"Ctrl+O\topen saved records; dropped files, too\r\n"
    L"Ctrl+S\tsave the shown records as text or CSV\r\n"
    L"Ctrl+L\tclear\r\n\r\n"
    L"velt-trace --help tells how to print or record without a window.";
} // namespace

void MainWindow::OnCommand(UINT command, UINT code)
{
    switch (command)
    {
    case VELT_ID_FILTER:
        return code == EN_CHANGE ? ApplyFilter() : void();
    case VELT_ID_LEVEL:
        return code == CBN_SELCHANGE ? ApplyFilter() : void();
    case VELT_ID_HIGHLIGHT:
        return code == EN_CHANGE ? m_list.SetHighlight(m_bar.Highlight()) : void();
    case VELT_COMMAND_SAVE:
        return Save();
    case VELT_COMMAND_OPEN:
        return OpenAsked();
    case VELT_COMMAND_EXIT:
        ::PostMessageW(m_window, WM_CLOSE, 0, 0);
        return;
    case VELT_COMMAND_COPY:
        return Copy();
    case VELT_COMMAND_SELECT_ALL:
        return SelectAll();
    case VELT_COMMAND_CLEAR:
        return Clear();
    case VELT_COMMAND_PAUSE:
        return SetPaused(!m_pausedAt);
    case VELT_COMMAND_FOLLOW:
        return SetFollowing(!m_following);
    case VELT_COMMAND_JUMP:
        return Jump();
    case VELT_COMMAND_FIND_FILTER:
        ::SetFocus(m_bar.FilterField());
        return;
    case VELT_COMMAND_FIND_HIGHLIGHT:
        ::SetFocus(m_bar.HighlightField());
        return;
    case VELT_COMMAND_CALLS:
        return m_callsDialog.Show(m_window);
    case VELT_COMMAND_RULES:
        return m_rulesDialog.Show(m_window, m_rules);
    case VELT_COMMAND_FIND_NEXT:
        return Find(SearchDirection::forward);
    case VELT_COMMAND_FIND_PREVIOUS:
        return Find(SearchDirection::backward);
    case VELT_COMMAND_MARK:
        return ToggleMarks();
    case VELT_COMMAND_NEXT_MARK:
        return GoToMark(SearchDirection::forward);
    case VELT_COMMAND_PREVIOUS_MARK:
        return GoToMark(SearchDirection::backward);
    case VELT_COMMAND_CLEAR_MARKS:
        m_marks.Clear();
        return m_list.ShowMarks();
    case VELT_COMMAND_DEBUG_OUTPUT:
        return ListenToDebugOutput(!m_session.ListensToDebugOutput());
    case VELT_COMMAND_FONT:
        return ChooseRecordFont();
    case VELT_COMMAND_ABOUT:
        return ShowAbout();
    case VELT_COMMAND_HELP:
        return ShowHelp();
    case IDOK:
        return OnEnter();
    case IDCANCEL:
        return OnEscape();
    default:
        return;
    }
}

void MainWindow::OnEnter()
{
    if (::GetFocus() == m_list.Window())
    {
        Jump();
    }
    else
    {
        ::SetFocus(m_list.Window());
    }
}

void MainWindow::OnEscape()
{
    const HWND focus = ::GetFocus();
    if (m_bar.IsTextField(focus) && ::GetWindowTextLengthW(focus) > 0)
    {
        ::SetWindowTextW(focus, L""); // which tells us that it has changed
    }
    else
    {
        ::SetFocus(m_list.Window());
    }
}

void MainWindow::ApplyFilter()
{
    m_list.KeepFocus();
    TraceFilter filter = m_bar.Filter();
    filter.rules = m_rules;
    m_view.SetFilter(std::move(filter));
    m_list.Update(false); // the former rows are no longer right
    FilterSome(); // so that what there is soon follows the key without an empty list between
    RefreshIn(kBusyMs);
}

void MainWindow::SetRules(const TraceRules& rules)
{
    m_rules = rules;
    m_session.SetRules(rules);
    m_list.SetRules(rules);
    TraceFilter filter = m_bar.Filter();
    filter.rules = rules;
    if (filter != m_view.Filter())
    {
        ApplyFilter();
    }
}

void MainWindow::Find(SearchDirection direction)
{
    const TextPattern wanted = m_bar.Highlight();
    if (wanted.IsEmpty())
    {
        ::SetFocus(m_bar.HighlightField()); // where one says what
        return;
    }
    std::optional<RowSearch> search; // begins where the one before it has led to
    Begin([this, wanted, direction, search]() mutable {
        if (!search)
        {
            search.emplace(m_session.Store(), m_view, wanted, m_list.FocusedRow(), direction);
        }
        if (!search->Look(kSlice))
        {
            return false;
        }
        if (search->Found())
        {
            Show(*search->Found());
            return true;
        }
        m_status.Say("no shown record has this text");
        ::MessageBeep(MB_OK);
        return true;
    });
}

void MainWindow::ToggleMarks()
{
    for (const std::uint64_t sequence : m_list.Selected())
    {
        m_marks.Toggle(sequence);
    }
    m_list.ShowMarks();
}

void MainWindow::GoToMark(SearchDirection direction)
{
    const bool forward = direction == SearchDirection::forward;
    std::optional<std::uint64_t> from = m_list.Focused();
    for (bool around = false;;)
    {
        const std::optional<std::uint64_t> mark =
            forward ? m_marks.After(from) : m_marks.Before(from);
        if (!mark && around)
        {
            break;
        }
        around = around || !mark;
        from = mark; // none: on from the other end of the list, as finding goes
        if (mark && m_list.Select(*mark))
        {
            return SetFollowing(false); // others the filter hides
        }
    }
    m_status.Say("no shown record is marked");
    ::MessageBeep(MB_OK);
}

void MainWindow::SetPaused(bool paused)
{
    m_pausedAt.reset();
    if (paused)
    {
        m_pausedAt = m_session.Store().Next();
    }
    Check(VELT_COMMAND_PAUSE, paused);
    RefreshIn(kBusyMs);
}

void MainWindow::SetFollowing(bool following) noexcept
{
    m_following = following;
    Check(VELT_COMMAND_FOLLOW, following);
    const int rows = static_cast<int>(m_view.Size());
    if (following && rows > 0)
    {
        ListView_EnsureVisible(m_list.Window(), rows - 1, FALSE);
    }
}

void MainWindow::Check(UINT command, bool checked) const noexcept
{
    ::SendMessageW(m_toolbar, TB_CHECKBUTTON, command, MAKELPARAM(checked ? TRUE : FALSE, 0));
    ::CheckMenuItem(::GetMenu(m_window), command,
                    static_cast<UINT>(MF_BYCOMMAND | (checked ? MF_CHECKED : MF_UNCHECKED)));
}

void MainWindow::Clear()
{
    m_work.clear();
    m_session.Drain(0); // what has arrived goes too
    m_session.Clear();
    m_marks.Clear();
    if (m_pausedAt)
    {
        m_pausedAt = m_session.Store().Next();
    }
    m_list.Update(false);
    OnSelection();
    ShowStatus();
    if (std::exchange(m_collecting, false))
    {
        CollectCalls(); // somebody waits for the answer
    }
}

void MainWindow::Copy()
{
    const HWND focus = ::GetFocus();
    if (m_bar.IsTextField(focus) || focus == m_details)
    {
        ::SendMessageW(focus, WM_COPY, 0, 0);
        return;
    }
    const std::string lines = SelectedLines(m_session, m_list);
    if (!lines.empty())
    {
        CopyToClipboard(m_window, WideFromUtf8(lines));
    }
}

void MainWindow::SelectAll() noexcept
{
    const HWND focus = ::GetFocus();
    if (m_bar.IsTextField(focus) || focus == m_details)
    {
        ::SendMessageW(focus, EM_SETSEL, 0, -1);
        return;
    }
    m_list.SelectAll();
}

void MainWindow::Save()
{
    if (const std::optional<std::wstring> path = AskForFile(m_window, SavedKind::textOrCsv))
    {
        const WaitCursor wait;
        m_list.Update(m_following); // what the store has dropped is no longer shown
        SaveRows(*path, m_session, m_view);
        m_status.Say(FormatCount(m_view.Size()) + " records saved");
    }
}

void MainWindow::Open(const std::wstring& path)
{
    const auto opening = std::make_shared<SavedFileOpening>(path, m_session);
    if (m_work.empty())
    {
        m_session.Drain(0); // what has arrived before comes before
    }
    m_status.Say("opening " + opening->Name());
    Begin([this, opening] {
        if (m_session.Store().Size() == 0)
        {
            SetFollowing(false); // one reads a file from its start
        }
        if (!opening->ReadPart())
        {
            return false;
        }
        m_status.Say(opening->Outcome());
        return true;
    });
}

void MainWindow::OpenAsked()
{
    if (const std::optional<std::wstring> path = AskForSavedFile(m_window))
    {
        Open(*path);
    }
}

void MainWindow::OnDrop(HDROP drop)
{
    std::vector<std::wstring> paths(::DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0));
    for (UINT i = 0; i < paths.size(); ++i)
    {
        std::wstring path(std::size_t{::DragQueryFileW(drop, i, nullptr, 0)} + 1, L'\0');
        path.resize(::DragQueryFileW(drop, i, path.data(), static_cast<UINT>(path.size())));
        paths[i] = std::move(path);
    }
    ::DragFinish(drop);
    for (const std::wstring& path : paths)
    {
        Open(path);
    }
}

/// The calls among the selected records, or among all that are shown when at most one is.
void MainWindow::CollectCalls()
{
    if (m_collecting)
    {
        return;
    }
    struct Collection
    {
        std::optional<TraceView> view; // a copy: another filter changes nothing
        std::vector<std::uint64_t> selected;
        std::size_t next = 0;
        CallTimesCollector collector;

        std::size_t Size() const noexcept
        {
            return view ? view->Size() : selected.size();
        }
    };
    const auto collection = std::make_shared<Collection>();
    if (m_list.SelectedCount() > 1)
    {
        collection->selected = m_list.Selected();
    }
    else
    {
        collection->view.emplace(m_view);
    }
    m_collecting = true;
    Begin([this, collection] {
        Collection& of = *collection;
        const TraceStore& store = m_session.Store();
        const std::size_t end = std::min(of.Size(), of.next + kSlice);
        for (; of.next < end; ++of.next)
        {
            const std::uint64_t sequence =
                of.view ? of.view->SequenceAt(of.next) : of.selected[of.next];
            if (sequence >= store.First()) // not dropped since the last update
            {
                of.collector.Add(sequence, store.At(sequence));
            }
        }
        if (of.next < of.Size())
        {
            return false;
        }
        m_collecting = false;
        CallsDialog::Content content;
        content.times = of.collector.Take();
        content.about = FormatCount(content.times.size()) +
                        (content.times.size() == 1 ? " function" : " functions") + " among the " +
                        FormatCount(of.Size()) + (of.view ? " shown" : " selected") + " records";
        m_callsDialog.SetContent(std::move(content));
        return true;
    });
}

void MainWindow::GoTo(std::uint64_t sequence)
{
    if (Show(sequence))
    {
        ::SetForegroundWindow(m_window); // which gives the keyboard to the list
    }
}

/// False, and it is said, for a record that another filter hides by now or that was dropped.
bool MainWindow::Show(std::uint64_t sequence)
{
    SetFollowing(false);
    if (m_list.Select(sequence))
    {
        return true;
    }
    m_status.Say("this record is not shown any more");
    ::MessageBeep(MB_OK);
    return false;
}

void MainWindow::Jump()
{
    const std::optional<std::uint64_t> focused = m_list.Focused();
    if (!focused || *focused < m_session.Store().First())
    {
        ::MessageBeep(MB_OK);
        return;
    }
    const std::optional<std::uint64_t> partner = FindPartner(m_session.Store(), *focused);
    if (!partner)
    {
        m_status.Say("no entry or exit line belongs to this one");
        ::MessageBeep(MB_OK);
        return;
    }
    SetFollowing(false);
    if (!m_list.Select(*partner))
    {
        m_status.Say("the other line is not shown: the filter or the pause hides it");
        ::MessageBeep(MB_OK);
    }
}

void MainWindow::ShowHelp() const
{
    ::MessageBoxW(m_window, kHelp, kMessageTitle, MB_OK | MB_ICONINFORMATION);
}

void MainWindow::ListenToDebugOutput(bool on)
{
    if (!m_session.ListenToDebugOutput(on))
    {
        m_status.Say("another program listens to the debugger output");
        ::MessageBeep(MB_OK);
    }
    Check(VELT_COMMAND_DEBUG_OUTPUT, m_session.ListensToDebugOutput());
}

void MainWindow::ShowAbout() const
{
    std::wstring text =
        L"" VELT_PRODUCT L" trace viewer\r\n" VELT_VERSION_TEXT L", " VELT_EDITION L"\r"
        L"\n" VELT_COPYRIGHT L"\r\n\r\nThe manual is docs\\trace.md in the developers' package; "
        L"F1 tells the keys, velt-trace --help the options.";
    ::MessageBoxW(m_window, text.c_str(), L"About the trace viewer", MB_OK | MB_ICONINFORMATION);
}

void MainWindow::ChooseRecordFont()
{
    LOGFONTW font{};
    ::GetObjectW(m_look.FixedFont(), sizeof(font), &font);
    CHOOSEFONTW question{};
    question.lStructSize = sizeof(question);
    question.hwndOwner = m_window;
    question.lpLogFont = &font;
    question.Flags = CF_SCREENFONTS | CF_INITTOLOGFONTSTRUCT | CF_NOSCRIPTSEL | CF_LIMITSIZE |
                     CF_NOVERTFONTS | CF_FORCEFONTEXIST;
    question.nSizeMin = FontChoice::kSmallest / 10;
    question.nSizeMax = FontChoice::kLargest / 10;
    if (::ChooseFontW(&question))
    {
        m_settings.font = FontChoice{font.lfFaceName, question.iPointSize};
        ApplyLook();
    }
}
} // namespace velt
