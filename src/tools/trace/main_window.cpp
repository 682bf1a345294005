#include "tools/trace/main_window.h"

#include "foundation/system_exception.h"
#include "foundation/trace_record.h"
#include "foundation/wide_text.h"
#include "tools/trace/command_bar.h"
#include "tools/trace/error_text.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/selection_text.h"

#include <windows.h>

#include <commctrl.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace velt
{
namespace
{
constexpr UINT_PTR kRefreshTimer = 1;
constexpr UINT kArrivalMs = 100;     // so that many records make one change of the list
constexpr DWORD kTickMs = 30;        // of filtering, then the window has its turn
constexpr int kTicksForSender = 5;   // how often the list waits for the sender's name
constexpr UINT kDpiChanged = 0x02E0; // WM_DPICHANGED, since Windows 8.1

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
      m_settings(ViewerSettings::Load()),
      m_session(*this, options.keep,
                options.files.empty() ? TraceSession::Kind::receiving : TraceSession::Kind::files),
      m_view(m_session.Store(), &m_session.Names()),
      m_rules(options.filter.rules.empty() ? m_settings.rules : options.filter.rules),
      m_rulesAreOptions(!options.filter.rules.empty()),
      m_look(WindowLook::DpiOf(m_window)),
      m_menu(m_window),
      m_toolbar(MakeCommandBar(m_window)),
      m_bar(m_window, options.filter),
      m_list((MakeHiddenLabel(m_window, L"Trace records"), m_window), m_session, m_view, m_marks),
      m_details(MakeDetails()),
      m_status(m_window),
      m_rulesDialog([this](const TraceRules& rules) {
          m_rulesAreOptions = false;
          SetRules(rules);
      }),
      m_callsDialog([this] { CollectCalls(); }, [this](std::uint64_t sequence) { GoTo(sequence); })
{
    m_built = true;
    m_list.SetColumns(m_settings.columnWidths, m_settings.columnOrder);
    ApplyLook();
    ::SetWindowPos(m_window, nullptr, 0, 0, m_look.Scaled(1100), m_look.Scaled(640),
                   SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    if (m_settings.place)
    {
        WINDOWPLACEMENT placement{};
        placement.length = sizeof(placement);
        placement.showCmd = SW_HIDE;
        placement.rcNormalPosition = *m_settings.place;
        ::SetWindowPlacement(m_window, &placement);
        const bool normal = showCommand == SW_SHOWDEFAULT || showCommand == SW_SHOWNORMAL;
        showCommand = m_settings.maximized && normal ? SW_SHOWMAXIMIZED : showCommand;
    }
    SetFollowing(true);
    SetRules(m_rules);
    ShowStatus();
    ::ShowWindow(m_window, showCommand);
    ::UpdateWindow(m_window);
    ::DragAcceptFiles(m_window, TRUE);
    ::EnableMenuItem(::GetMenu(m_window), VELT_COMMAND_DEBUG_OUTPUT,
                     static_cast<UINT>(options.files.empty() ? MF_ENABLED : MF_GRAYED));
    if (options.debugOutput)
    {
        ListenToDebugOutput(true);
    }
    for (const std::string& file : options.files)
    {
        Open(WideFromUtf8(file));
    }
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
        if (!m_rulesDialog.Takes(message) && !m_callsDialog.Takes(message) &&
            !::TranslateAcceleratorW(m_window, keys, &message) &&
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

HWND MainWindow::MakeDetails() const
{
    MakeHiddenLabel(m_window, L"Selected record");
    return OrThrow(::CreateWindowExW(
        WS_EX_CLIENTEDGE, WC_EDITW, L"",
        WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL | ES_MULTILINE | ES_READONLY, 0, 0, 0, 0,
        m_window, reinterpret_cast<HMENU>(VELT_ID_DETAILS), ::GetModuleHandleW(nullptr), nullptr));
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
    case WM_DROPFILES:
        OnDrop(reinterpret_cast<HDROP>(wParam));
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
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLORBTN:
        if (const HBRUSH brush = m_look.ColorsFor(message, reinterpret_cast<HDC>(wParam)))
        {
            return reinterpret_cast<LRESULT>(brush);
        }
        return std::nullopt;
    case WM_ERASEBKGND:
    {
        RECT client{};
        ::GetClientRect(m_window, &client);
        ::FillRect(reinterpret_cast<HDC>(wParam), &client, m_look.FaceBrush());
        return TRUE;
    }
    case WM_ENDSESSION:
        if (wParam != 0)
        {
            Remember();
        }
        return 0;
    case WM_DESTROY:
        Remember();
        m_built = false;
        ::PostQuitMessage(0);
        return 0;
    default:
        return m_menu.Handle(message, wParam, lParam);
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
    if (header.hwndFrom == m_toolbar && header.code == NM_CUSTOMDRAW)
    {
        return OnToolbarDraw(notification);
    }
    return m_list.OnNotify(header, notification);
}

/// The dark look, which not every system gives a tool bar.
std::optional<LRESULT> MainWindow::OnToolbarDraw(LPARAM notification) const noexcept
{
    if (!m_look.IsDark())
    {
        return std::nullopt;
    }
    auto& draw = *reinterpret_cast<NMTBCUSTOMDRAW*>(notification);
    if (draw.nmcd.dwDrawStage == CDDS_PREPAINT)
    {
        ::FillRect(draw.nmcd.hdc, &draw.nmcd.rc, m_look.FaceBrush());
        return CDRF_NOTIFYITEMDRAW;
    }
    if (draw.nmcd.dwDrawStage != CDDS_ITEMPREPAINT)
    {
        return CDRF_DODEFAULT;
    }
    const bool shown = (draw.nmcd.uItemState & (CDIS_HOT | CDIS_CHECKED | CDIS_SELECTED)) != 0;
    ::FillRect(draw.nmcd.hdc, &draw.nmcd.rc, shown ? m_look.WindowBrush() : m_look.FaceBrush());
    draw.clrText = m_look.Colors().faceText;
    return TBCDRF_NOEDGES | TBCDRF_NOBACKGROUND | TBCDRF_NOETCHEDEFFECT;
}

void MainWindow::OnTick()
{
    ::KillTimer(m_window, kRefreshTimer);
    m_refreshMs.reset();
    const bool working = !m_work.empty();
    if (!working && !m_session.KnowsSender() && ++m_ticksWithoutSender < kTicksForSender)
    {
        RefreshIn(kArrivalMs);
    }
    else if (!working)
    {
        m_ticksWithoutSender = 0;
        m_session.Drain(0);
    }
    const bool filtering = FilterSome();
    if (working)
    {
        RefreshIn(kBusyMs); // first: work that fails throws
        WorkSome();
    }
    if (filtering)
    {
        RefreshIn(kBusyMs);
    }
    else if (m_session.WantsDrain())
    {
        RefreshIn(kArrivalMs);
    }
    m_marks.LeaveOutBefore(m_session.Store().First());
    ShowStatus();
}

void MainWindow::Begin(std::function<bool()> work)
{
    m_work.push_back(std::move(work));
    RefreshIn(kBusyMs);
    if (m_work.size() == 1)
    {
        WorkSome(); // what is soon done needs no second look
    }
}

void MainWindow::WorkSome()
{
    const DWORD startMs = ::GetTickCount();
    do
    {
        // Taken out while it is at work, so that work that fails is gone.
        std::function<bool()> work = std::move(m_work.front());
        m_work.pop_front();
        try
        {
            if (!work())
            {
                m_work.push_front(std::move(work));
            }
        }
        catch (...)
        {
            m_collecting = false; // if it was that
            throw;
        }
    } while (!m_work.empty() && ::GetTickCount() - startMs < kTickMs &&
             HIWORD(::GetQueueStatus(QS_INPUT)) == 0);
}

bool MainWindow::FilterSome()
{
    const std::uint64_t end = m_session.Store().Next();
    const std::uint64_t hidden = m_pausedAt ? end - std::min(*m_pausedAt, end) : 0;
    const std::uint64_t waiting = m_view.Waiting();
    std::uint64_t left = waiting - std::min(waiting, hidden);
    // The first screen of a new filter comes before anything else is looked at.
    const std::size_t screen = m_view.Size() == 0 ? m_list.RowsOnScreen() : 0;
    const DWORD startMs = ::GetTickCount();
    do
    {
        const std::uint64_t slice = std::min<std::uint64_t>(kSlice, left);
        m_view.Advance(static_cast<std::size_t>(slice));
        left -= slice;
        // A key waits for one slice at most, and what is there is shown soon.
    } while (left > 0 && (screen == 0 || m_view.Size() < screen) &&
             ::GetTickCount() - startMs < kTickMs && HIWORD(::GetQueueStatus(QS_INPUT)) == 0);
    const bool more = m_view.Waiting() > hidden;
    // To the newest only when all are there: until then each look would paint another screen.
    m_list.Update(m_following && !more);
    if (m_following && m_filtering && !more)
    {
        SetFollowing(true);
    }
    m_filtering = more;
    return more;
}

void MainWindow::OnSelection()
{
    const std::string text = SelectionText(m_session, m_list);
    const std::optional<std::uint64_t> focused = m_list.Focused();
    if (text != m_selectionText || focused != m_selectionOf)
    {
        m_selectionText = text; // else what was last done stays to be read
        m_selectionOf = focused;
        m_status.Say(text);
    }
    ::SetWindowTextW(m_details, WideFromUtf8(DetailsText(m_session, m_list, text)).c_str());
}

void MainWindow::Remember()
{
    WINDOWPLACEMENT placement{};
    placement.length = sizeof(placement);
    if (::GetWindowPlacement(m_window, &placement))
    {
        m_settings.place = placement.rcNormalPosition;
        m_settings.maximized = placement.showCmd == SW_SHOWMAXIMIZED ||
                               (placement.showCmd == SW_SHOWMINIMIZED &&
                                (placement.flags & WPF_RESTORETOMAXIMIZED) != 0);
    }
    m_settings.columnWidths = m_list.ColumnWidths();
    m_settings.columnOrder = m_list.ColumnOrder();
    if (!m_rulesAreOptions)
    {
        m_settings.rules = m_rules;
    }
    m_settings.Save();
}

void MainWindow::RefreshIn(UINT periodMs) noexcept
{
    if (!m_refreshMs || periodMs < *m_refreshMs) // what comes sooner is not put off
    {
        m_refreshMs = periodMs;
        ::SetTimer(m_window, kRefreshTimer, periodMs, nullptr);
    }
}

void MainWindow::ApplyLook()
{
    m_look = WindowLook(WindowLook::DpiOf(m_window), m_settings.font);
    m_look.ApplyTo(m_window);
    m_look.ApplyTo(m_details);
    const auto font = reinterpret_cast<WPARAM>(m_look.Font());
    // In this order: the font has the buttons' sizes made anew.
    ::SendMessageW(m_toolbar, TB_SETPADDING, 0, MAKELPARAM(m_look.Scaled(12), m_look.Scaled(8)));
    ::SendMessageW(m_toolbar, WM_SETFONT, font, TRUE);
    ::SendMessageW(m_details, WM_SETFONT, reinterpret_cast<WPARAM>(m_look.FixedFont()), TRUE);
    m_menu.SetLook(m_look);
    m_bar.SetLook(m_look);
    m_list.SetLook(m_look);
    m_status.SetLook(m_look);
    m_rulesDialog.SetLook(m_look);
    m_callsDialog.SetLook(m_look);
    ::RedrawWindow(m_window, nullptr, nullptr,
                   RDW_ERASE | RDW_FRAME | RDW_INVALIDATE | RDW_ALLCHILDREN);
    Layout();
}

void MainWindow::Layout() noexcept
{
    RECT client{};
    ::GetClientRect(m_window, &client);
    ::SendMessageW(m_toolbar, TB_AUTOSIZE, 0, 0);
    ::SendMessageW(m_status.Window(), WM_SIZE, 0, 0);
    const int width = static_cast<int>(client.right);
    const int barTop = HeightOf(m_toolbar);
    const int top = barTop + m_bar.Place(0, barTop, width, m_look);
    const int detailsHeight = m_look.Scaled(66);
    const int bottom = std::max(
        static_cast<int>(client.bottom) - HeightOf(m_status.Window()) - detailsHeight, top);
    ::SetWindowPos(m_list.Window(), nullptr, 0, top, width, bottom - top,
                   SWP_NOZORDER | SWP_NOACTIVATE);
    ::SetWindowPos(m_details, nullptr, 0, bottom, width, detailsHeight,
                   SWP_NOZORDER | SWP_NOACTIVATE);
}

void MainWindow::ShowStatus()
{
    m_status.ShowCounts(m_session, m_view.Size(),
                        m_pausedAt                  ? ", paused"
                        : m_view.Waiting() > kSlice ? ", filtering"
                                                    : "");
}

} // namespace velt
