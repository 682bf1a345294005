#include "tools/trace/main_window.h"

#include "foundation/system_exception.h"
#include "foundation/trace_record.h"
#include "foundation/wide_text.h"
#include "tools/common/output_file.h"
#include "tools/trace/clipboard.h"
#include "tools/trace/error_text.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/trace_pairs.h"
#include "tools/trace/wait_cursor.h"

#include <windows.h>

#include <commctrl.h>
#include <commdlg.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace velt
{
namespace
{
constexpr UINT_PTR kRefreshTimer = 1;
constexpr UINT kArrivalMs = 100; // so that many records make one change of the list
constexpr UINT kBusyMs = USER_TIMER_MINIMUM;
constexpr std::size_t kSlice = 50'000;         // records that are filtered between two messages
constexpr std::uint64_t kPairSearch = 100'000; // records that a selection looks through
constexpr int kTicksForSender = 5;             // how often the list waits for the sender's name
constexpr UINT kDpiChanged = 0x02E0;           // WM_DPICHANGED, since Windows 8.1
constexpr wchar_t kMessageTitle[] = L"Trace viewer";

enum StatusPart
{
    kRecords,
    kShown,
    kGone,
    kMalformed,
    kSelection,
};
constexpr std::array<int, 5> kStatusWidths{150, 150, 260, 130, -1};

struct Button
{
    UINT command;
    const wchar_t* text;
    BYTE style;
};
constexpr std::array<Button, 8> kButtons{{
    {VELT_COMMAND_PAUSE, L"Pause", BTNS_CHECK},
    {VELT_COMMAND_FOLLOW, L"Follow", BTNS_CHECK},
    {VELT_COMMAND_CLEAR, L"Clear", BTNS_BUTTON},
    {0, nullptr, BTNS_SEP},
    {VELT_COMMAND_COPY, L"Copy", BTNS_BUTTON},
    {VELT_COMMAND_SAVE, L"Save", BTNS_BUTTON},
    {0, nullptr, BTNS_SEP},
    {VELT_COMMAND_JUMP, L"Entry / exit", BTNS_BUTTON},
}};

constexpr wchar_t kHelp[] =
    L"Programs that load the component after this viewer was started send it their trace.\r\n\r\n"
    L"Ctrl+F\tfilter by text or source\r\n"
    L"Ctrl+H\thighlight a text\r\n"
    L"Ctrl+P\tpause and go on; records are kept meanwhile\r\n"
    L"Ctrl+E\tfollow the newest record\r\n"
    L"Ctrl+J, Enter\tjump between an entry line and its exit line\r\n"
    L"Ctrl+C\tcopy the selected records\r\n"
    L"Ctrl+S\tsave the shown records as text or CSV\r\n"
    L"Ctrl+L\tclear\r\n\r\n"
    L"velt-trace --help tells how to print or record without a window.";

/// A label that nobody sees, for the screen reader to name the next window by.
void MakeHiddenLabel(HWND parent, const wchar_t* text)
{
    ::CreateWindowExW(0, WC_STATICW, text, WS_CHILD, 0, 0, 0, 0, parent, nullptr,
                      ::GetModuleHandleW(nullptr), nullptr);
}

HWND OrThrow(HWND window)
{
    if (!window)
    {
        ThrowLastError();
    }
    return window;
}

int HeightOf(HWND window) noexcept
{
    RECT bounds{};
    ::GetWindowRect(window, &bounds);
    return static_cast<int>(bounds.bottom - bounds.top);
}
} // namespace

MainWindow::MainWindow(const TraceOptions& options, int showCommand)
    : m_window(MakeFrame()),
      m_session(*this, options.keep),
      m_view(m_session.Store()),
      m_look(WindowLook::DpiOf(m_window)),
      m_toolbar(MakeToolbar()),
      m_bar(m_window, options.filter),
      m_list((MakeHiddenLabel(m_window, L"Trace records"), m_window), m_session, m_view),
      m_details(MakeDetails()),
      m_status(MakeStatus())
{
    m_built = true;
    ApplyLook();
    ::SetWindowPos(m_window, nullptr, 0, 0, m_look.Scaled(1100), m_look.Scaled(640),
                   SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    SetFollowing(true);
    ApplyFilter();
    ShowStatus();
    ::ShowWindow(m_window, showCommand);
    ::UpdateWindow(m_window);
}

MainWindow::~MainWindow()
{
    m_built = false;
    if (::IsWindow(m_window))
    {
        ::DestroyWindow(m_window);
    }
}

void MainWindow::Run()
{
    const HACCEL keys =
        ::LoadAcceleratorsW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(VELT_TRACE_KEYS));
    MSG message;
    while (::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        const bool scrolls = message.message == WM_MOUSEWHEEL ||
                             (message.message == WM_NCLBUTTONDOWN && message.wParam == HTVSCROLL);
        if (scrolls && message.hwnd == m_list.Window())
        {
            SetFollowing(false); // who scrolls wants to stay there
        }
        if (!::TranslateAcceleratorW(m_window, keys, &message) &&
            !::IsDialogMessageW(m_window, &message))
        {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
}

LRESULT CALLBACK MainWindow::WindowProc(HWND window, UINT message, WPARAM wParam,
                                        LPARAM lParam) noexcept
{
    if (message == WM_NCCREATE)
    {
        const auto* const creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        ::SetWindowLongPtrW(window, GWLP_USERDATA,
                            reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
    }
    auto* const self = reinterpret_cast<MainWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    if (self && self->m_built)
    {
        try
        {
            if (const std::optional<LRESULT> result = self->Handle(message, wParam, lParam))
            {
                return *result;
            }
        }
        catch (...)
        {
            ::MessageBoxW(window, CurrentErrorText().c_str(), kMessageTitle, MB_OK | MB_ICONERROR);
            return 0;
        }
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

HWND MainWindow::MakeFrame()
{
    const HINSTANCE instance = ::GetModuleHandleW(nullptr);
    const INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES |
                                                              ICC_STANDARD_CLASSES};
    ::InitCommonControlsEx(&controls);
    WNDCLASSEXW type{};
    type.cbSize = sizeof(type);
    type.lpfnWndProc = &MainWindow::WindowProc;
    type.hInstance = instance;
    type.hIcon = ::LoadIconW(instance, MAKEINTRESOURCEW(VELT_TRACE_ICON));
    type.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
    type.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    type.lpszMenuName = MAKEINTRESOURCEW(VELT_TRACE_MENU);
    type.lpszClassName = kClass;
    if (!::RegisterClassExW(&type) && ::GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
    {
        ThrowLastError();
    }
    // The viewers' common title; what programs send goes to the receiver's window, of their class.
    return OrThrow(::CreateWindowExW(WS_EX_CONTROLPARENT, kClass, kTraceViewerClass,
                                     WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, CW_USEDEFAULT,
                                     CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, nullptr, nullptr,
                                     instance, this));
}

HWND MainWindow::MakeToolbar() const
{
    const HWND toolbar = OrThrow(::CreateWindowExW(
        0, TOOLBARCLASSNAMEW, L"Commands",
        WS_CHILD | WS_VISIBLE | TBSTYLE_FLAT | TBSTYLE_LIST | CCS_NODIVIDER, 0, 0, 0, 0, m_window,
        reinterpret_cast<HMENU>(VELT_ID_TOOLBAR), ::GetModuleHandleW(nullptr), nullptr));
    ::SendMessageW(toolbar, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    ::SendMessageW(toolbar, TB_SETBITMAPSIZE, 0, 0); // the words say it
    std::array<TBBUTTON, kButtons.size()> buttons{};
    for (std::size_t i = 0; i < buttons.size(); ++i)
    {
        buttons[i].iBitmap = I_IMAGENONE;
        buttons[i].idCommand = static_cast<int>(kButtons[i].command);
        buttons[i].fsState = TBSTATE_ENABLED;
        buttons[i].fsStyle = static_cast<BYTE>(kButtons[i].style | BTNS_AUTOSIZE);
        buttons[i].iString = reinterpret_cast<INT_PTR>(kButtons[i].text);
    }
    ::SendMessageW(toolbar, TB_ADDBUTTONSW, buttons.size(),
                   reinterpret_cast<LPARAM>(buttons.data()));
    return toolbar;
}

HWND MainWindow::MakeDetails() const
{
    MakeHiddenLabel(m_window, L"Selected record");
    return OrThrow(::CreateWindowExW(
        WS_EX_CLIENTEDGE, WC_EDITW, L"",
        WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL | ES_MULTILINE | ES_READONLY, 0, 0, 0, 0,
        m_window, reinterpret_cast<HMENU>(VELT_ID_DETAILS), ::GetModuleHandleW(nullptr), nullptr));
}

HWND MainWindow::MakeStatus() const
{
    return OrThrow(::CreateWindowExW(
        0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | SBARS_SIZEGRIP, 0, 0, 0, 0, m_window,
        reinterpret_cast<HMENU>(VELT_ID_STATUS), ::GetModuleHandleW(nullptr), nullptr));
}

void MainWindow::OnArrival() noexcept
{
    ::PostMessageW(m_window, kArrived, 0, 0);
}

void MainWindow::OnCloseAsked() noexcept
{
    ::PostMessageW(m_window, WM_CLOSE, 0, 0);
}

std::optional<LRESULT> MainWindow::Handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case kArrived:
        RefreshIn(kArrivalMs);
        return 0;
    case WM_TIMER:
        OnTick();
        return 0;
    case kSelectionChanged:
        m_selectionPosted = false;
        OnSelection();
        return 0;
    case WM_COMMAND:
        OnCommand(LOWORD(wParam), HIWORD(wParam));
        return 0;
    case WM_NOTIFY:
        return OnNotify(lParam);
    case WM_SIZE:
        Layout();
        return 0;
    case WM_GETMINMAXINFO:
        reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {m_look.Scaled(640),
                                                                 m_look.Scaled(320)};
        return 0;
    case WM_SETFOCUS:
        ::SetFocus(m_list.Window());
        return 0;
    case WM_SETTINGCHANGE:
    case WM_SYSCOLORCHANGE:
        ::SendMessageW(m_list.Window(), message, wParam, lParam);
        ApplyLook();
        return 0;
    case kDpiChanged:
    {
        const RECT& place = *reinterpret_cast<const RECT*>(lParam);
        ApplyLook();
        ::SetWindowPos(m_window, nullptr, static_cast<int>(place.left), static_cast<int>(place.top),
                       static_cast<int>(place.right - place.left),
                       static_cast<int>(place.bottom - place.top), SWP_NOZORDER | SWP_NOACTIVATE);
        return 0;
    }
    case WM_CLOSE:
        if (!::IsWindowEnabled(m_window))
        {
            ::MessageBeep(MB_OK); // a dialog of ours is open and would lose its owner
            return 0;
        }
        return std::nullopt;
    case WM_DESTROY:
        m_built = false;
        ::PostQuitMessage(0);
        return 0;
    default:
        return std::nullopt;
    }
}

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

std::optional<LRESULT> MainWindow::OnNotify(LPARAM notification)
{
    // Not all of these structures are aligned: that of a key is packed.
    NMHDR header;
    std::memcpy(&header, reinterpret_cast<const void*>(notification), sizeof(header));
    if (header.hwndFrom == m_list.Window())
    {
        switch (header.code)
        {
        case LVN_ITEMCHANGED:
        case LVN_ODSTATECHANGED:
            if (!m_selectionPosted)
            {
                m_selectionPosted = ::PostMessageW(m_window, kSelectionChanged, 0, 0) != 0;
            }
            return 0;
        case NM_CLICK:
            SetFollowing(false);
            return 0;
        case NM_DBLCLK:
            Jump();
            return 0;
        case LVN_KEYDOWN:
        {
            NMLVKEYDOWN key;
            std::memcpy(&key, reinterpret_cast<const void*>(notification), sizeof(key));
            if (key.wVKey == VK_UP || key.wVKey == VK_PRIOR || key.wVKey == VK_HOME)
            {
                SetFollowing(false);
            }
            return 0;
        }
        default:
            break;
        }
    }
    return m_list.OnNotify(header, notification);
}

void MainWindow::OnTick()
{
    ::KillTimer(m_window, kRefreshTimer);
    if (!m_session.KnowsSender() && ++m_ticksWithoutSender < kTicksForSender)
    {
        RefreshIn(kArrivalMs);
    }
    else
    {
        m_ticksWithoutSender = 0;
        m_session.Drain(0);
    }
    const std::uint64_t end = m_session.Store().Next();
    const std::uint64_t hidden = m_pausedAt ? end - std::min(*m_pausedAt, end) : 0;
    const std::uint64_t waiting = m_view.Waiting();
    m_view.Advance(static_cast<std::size_t>(
        std::min<std::uint64_t>(kSlice, waiting - std::min(waiting, hidden))));
    m_list.Update(m_following);
    if (m_view.Waiting() > hidden)
    {
        RefreshIn(kBusyMs);
    }
    ShowStatus();
}

void MainWindow::OnSelection()
{
    const std::size_t count = m_list.SelectedCount();
    const std::optional<std::uint64_t> focused = m_list.Focused();
    const bool isThere = focused && *focused >= m_session.Store().First();
    const std::string selection = count > 1               ? SelectionText(count)
                                  : count == 1 && isThere ? PairText(*focused)
                                                          : "";
    SetStatus(kSelection, selection);
    if (count == 0 || !isThere)
    {
        ::SetWindowTextW(m_details, L"");
        return;
    }
    const TraceEntry entry = m_session.Store().At(*focused);
    std::string text = FormatArrival(entry.arrivalUs) + "   level " + FormatLevel(entry) + "   " +
                       std::string(m_session.Process(entry));
    if (!entry.source.empty())
    {
        text += "   " + WithoutControls(entry.source);
    }
    text += "\r\n" + WithoutControls(entry.text) + "\r\n" + selection;
    ::SetWindowTextW(m_details, WideFromUtf8(text).c_str());
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

void MainWindow::RefreshIn(UINT periodMs) noexcept
{
    ::SetTimer(m_window, kRefreshTimer, periodMs, nullptr);
}

void MainWindow::ApplyLook()
{
    m_look = WindowLook(WindowLook::DpiOf(m_window));
    const auto font = reinterpret_cast<WPARAM>(m_look.Font());
    ::SendMessageW(m_toolbar, WM_SETFONT, font, TRUE);
    ::SendMessageW(m_status, WM_SETFONT, font, TRUE);
    ::SendMessageW(m_details, WM_SETFONT, reinterpret_cast<WPARAM>(m_look.FixedFont()), TRUE);
    ::SendMessageW(m_toolbar, TB_SETPADDING, 0, MAKELPARAM(m_look.Scaled(12), m_look.Scaled(8)));
    m_bar.SetLook(m_look);
    m_list.SetLook(m_look);

    std::array<int, kStatusWidths.size()> edges{};
    int edge = 0;
    std::transform(kStatusWidths.begin(), kStatusWidths.end(), edges.begin(),
                   [&](int width) { return width < 0 ? -1 : edge += m_look.Scaled(width); });
    ::SendMessageW(m_status, SB_SETPARTS, edges.size(), reinterpret_cast<LPARAM>(edges.data()));
    Layout();
}

void MainWindow::Layout() noexcept
{
    RECT client{};
    ::GetClientRect(m_window, &client);
    ::SendMessageW(m_toolbar, TB_AUTOSIZE, 0, 0);
    ::SendMessageW(m_status, WM_SIZE, 0, 0);
    const int width = static_cast<int>(client.right);
    const int barTop = HeightOf(m_toolbar);
    const int top = barTop + m_bar.Place(0, barTop, width, m_look);
    const int detailsHeight = m_look.Scaled(66);
    const int bottom =
        std::max(static_cast<int>(client.bottom) - HeightOf(m_status) - detailsHeight, top);
    ::SetWindowPos(m_list.Window(), nullptr, 0, top, width, bottom - top,
                   SWP_NOZORDER | SWP_NOACTIVATE);
    ::SetWindowPos(m_details, nullptr, 0, bottom, width, detailsHeight,
                   SWP_NOZORDER | SWP_NOACTIVATE);
}

void MainWindow::ApplyFilter()
{
    m_list.KeepFocus();
    m_view.SetFilter(m_bar.Filter());
    m_list.Update(false);
    RefreshIn(kBusyMs);
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
    m_session.Drain(0); // what has arrived goes too
    m_session.Clear();
    if (m_pausedAt)
    {
        m_pausedAt = m_session.Store().Next();
    }
    m_list.Update(false);
    OnSelection();
    ShowStatus();
}

void MainWindow::Copy()
{
    const HWND focus = ::GetFocus();
    if (m_bar.IsTextField(focus) || focus == m_details)
    {
        ::SendMessageW(focus, WM_COPY, 0, 0);
        return;
    }
    std::string lines;
    for (const std::uint64_t sequence : m_list.Selected())
    {
        if (sequence >= m_session.Store().First())
        {
            const TraceEntry entry = m_session.Store().At(sequence);
            AppendTextLine(lines, entry, m_session.Process(entry));
        }
    }
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
    std::array<wchar_t, 4096> path{};
    OPENFILENAMEW question{};
    question.lStructSize = sizeof(question);
    question.hwndOwner = m_window;
    question.lpstrFilter = L"Text (*.txt)\0*.txt\0Comma-separated values (*.csv)\0*.csv\0";
    question.nFilterIndex = 1;
    question.lpstrFile = path.data();
    question.nMaxFile = static_cast<DWORD>(path.size());
    question.lpstrDefExt = L"txt";
    question.lpstrTitle = L"Save the shown records";
    question.Flags =
        OFN_EXPLORER | OFN_HIDEREADONLY | OFN_NOCHANGEDIR | OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST;
    if (::GetSaveFileNameW(&question))
    {
        WriteRows(path.data());
    }
}

void MainWindow::WriteRows(const std::wstring& path)
{
    constexpr std::size_t kBufferBytes = std::size_t{256} << 10;
    const WaitCursor wait;
    OutputFile file(path);
    const bool csv = EndsInCsv(Utf8FromWide(path));
    std::string lines(csv ? kCsvHeading : "");
    m_list.Update(m_following); // what the store has dropped is no longer shown
    for (std::size_t row = 0; row < m_view.Size(); ++row)
    {
        const TraceEntry entry = m_session.Store().At(m_view.SequenceAt(row));
        (csv ? AppendCsvLine : AppendTextLine)(lines, entry, m_session.Process(entry));
        if (lines.size() >= kBufferBytes)
        {
            file.Write(lines);
            lines.clear();
        }
    }
    file.Write(lines);
    file.Commit();
    SetStatus(kSelection, FormatCount(m_view.Size()) + " records saved");
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
        SetStatus(kSelection, "no entry or exit line belongs to this one");
        ::MessageBeep(MB_OK);
        return;
    }
    SetFollowing(false);
    if (!m_list.Select(*partner))
    {
        SetStatus(kSelection, "the other line is not shown: the filter or the pause hides it");
        ::MessageBeep(MB_OK);
    }
}

void MainWindow::ShowHelp() const
{
    ::MessageBoxW(m_window, kHelp, kMessageTitle, MB_OK | MB_ICONINFORMATION);
}

void MainWindow::ShowStatus()
{
    const TraceStore& store = m_session.Store();
    SetStatus(kRecords, FormatCount(store.Size()) + " records");
    std::string shown = FormatCount(m_view.Size()) + " shown";
    if (m_pausedAt)
    {
        shown += ", paused";
    }
    else if (m_view.Waiting() > kSlice)
    {
        shown += ", filtering";
    }
    SetStatus(kShown, shown);
    std::string gone = store.Dropped() == 0 ? std::string("none dropped")
                                            : FormatCount(store.Dropped()) + " oldest dropped";
    if (m_session.Lost() != 0)
    {
        gone += ", " + FormatCount(m_session.Lost()) + " lost";
    }
    SetStatus(kGone, gone);
    SetStatus(kMalformed, FormatCount(m_session.Malformed()) + " malformed");
}

void MainWindow::SetStatus(int part, const std::string& text)
{
    std::string& shown = m_statusTexts[static_cast<std::size_t>(part)];
    if (shown != text)
    {
        shown = text;
        ::SendMessageW(m_status, SB_SETTEXTW, static_cast<WPARAM>(part),
                       reinterpret_cast<LPARAM>(WideFromUtf8(text).c_str()));
    }
}

std::string MainWindow::PairText(std::uint64_t sequence) const
{
    const std::optional<std::uint64_t> partner =
        FindPartner(m_session.Store(), sequence, kPairSearch);
    if (!partner)
    {
        return {};
    }
    const std::int64_t from = m_session.Store().At(sequence).arrivalUs;
    const std::int64_t to = m_session.Store().At(*partner).arrivalUs;
    return to >= from && *partner > sequence
               ? FormatDuration(to - from) + " until its exit line"
               : FormatDuration(std::max<std::int64_t>(from - to, 0)) + " since its entry line";
}

std::string MainWindow::SelectionText(std::size_t count) const
{
    std::string text = FormatCount(count) + " selected";
    if (count == 2)
    {
        const std::vector<std::uint64_t> both = m_list.Selected();
        if (both.size() == 2 && both.front() >= m_session.Store().First())
        {
            text += ", " +
                    FormatDuration(m_session.Store().At(both.back()).arrivalUs -
                                   m_session.Store().At(both.front()).arrivalUs) +
                    " between them";
        }
    }
    return text;
}
} // namespace velt
