#include "ui/halden_style_button.h"

#include "foundation/exception_to_hresult.h"
#include "ui/button_painter.h"
#include "ui/drawing_scopes.h"

#include <commctrl.h>

#include <exception>
#include <utility>

namespace
{
POINT PointFrom(LPARAM lParam) noexcept
{
    return {static_cast<short>(LOWORD(lParam)), static_cast<short>(HIWORD(lParam))};
}

bool IsRelayed(UINT message) noexcept
{
    return message >= WM_MOUSEMOVE && message <= WM_MOUSEWHEEL;
}
} // namespace

CHaldenStyleButton::CHaldenStyleButton(UINT normalId, UINT hotId, UINT pressedId) noexcept
    : m_normalFace(normalId),
      m_hotFace(hotId),
      m_pressedFace(pressedId)
{
}

CHaldenStyleButton::~CHaldenStyleButton()
{
    if (const HWND window = Window())
    {
        const LONG_PTR style = ::GetWindowLongPtrW(window, GWL_STYLE);
        ::SetWindowLongPtrW(window, GWL_STYLE, (style & ~LONG_PTR{BS_TYPEMASK}) | m_typeBefore);
    }
}

bool CHaldenStyleButton::SubclassWindow(HWND button) noexcept
{
    if (!m_subclass.Attach(button, &CHaldenStyleButton::HandleMessage, this))
    {
        return false;
    }
    m_typeBefore = ::GetWindowLongPtrW(button, GWL_STYLE) & BS_TYPEMASK;
    m_state = 0;
    OnInitialise();
    return true;
}

void CHaldenStyleButton::SetTooltipText(std::wstring text)
{
    m_tooltipText = std::move(text);
    if (m_tooltip)
    {
        ShowTooltipText();
    }
}

HWND CHaldenStyleButton::Window() const noexcept
{
    return m_subclass.Window();
}

LRESULT CHaldenStyleButton::HandleMessage(void* button, UINT message, WPARAM wParam,
                                          LPARAM lParam) noexcept
{
    return static_cast<CHaldenStyleButton*>(button)->Receive(message, wParam, lParam);
}

/// Nothing in here throws, so that nothing has to be kept from the system.
LRESULT CHaldenStyleButton::Receive(UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    // What a message brings about may end this object.
    const HWND window = Window();
    const WNDPROC original = m_subclass.Original();
    if (IsRelayed(message))
    {
        RelayToTooltip(message, wParam, lParam);
    }
    switch (message)
    {
    case WM_CREATE:
    case WM_INITDIALOG:
        return OnInitialise();
    case WM_PAINT:
        return OnPaint();
    case WM_PRINTCLIENT:
        return OnPrintClient(reinterpret_cast<HDC>(wParam));
    case WM_LBUTTONDOWN:
        return OnLeftButtonDown(wParam, lParam);
    case WM_LBUTTONUP:
        return OnLeftButtonUp(wParam, lParam);
    case WM_LBUTTONDBLCLK:
        return OnLeftButtonDoubleClick(wParam, lParam);
    case WM_MOUSELEAVE:
        return OnMouseLeave();
    case WM_CAPTURECHANGED:
        SetState(kPressed, false);
        break;
    case WM_MOUSEMOVE:
        OnMouseMove(lParam);
        break;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
        OnFocus(message == WM_SETFOCUS);
        break;
    case WM_ENABLE:
    case WM_SETTEXT:
        // The original procedure leaves the drawing to the parent, which draws nothing.
        ::InvalidateRect(window, nullptr, TRUE);
        break;
    case WM_NCDESTROY:
        OnDestroyed();
        break;
    default:
        break;
    }
    return ::CallWindowProcW(original, window, message, wParam, lParam);
}

LRESULT CHaldenStyleButton::OnInitialise() noexcept
{
    const LONG_PTR style = ::GetWindowLongPtrW(Window(), GWL_STYLE);
    ::SetWindowLongPtrW(Window(), GWL_STYLE, style | BS_OWNERDRAW);
    m_tooltip.Reset(::CreateWindowExW(
        0, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX, CW_USEDEFAULT,
        CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, Window(), nullptr, nullptr, nullptr));
    if (m_tooltip && !m_tooltipText.empty())
    {
        ShowTooltipText();
    }
    return 1;
}

LRESULT CHaldenStyleButton::OnPaint() noexcept
{
    const velt::PaintScope paint(Window());
    Draw(paint.Get());
    return 0;
}

LRESULT CHaldenStyleButton::OnPrintClient(HDC context) noexcept
{
    Draw(context);
    return 0;
}

LRESULT CHaldenStyleButton::OnLeftButtonDown(WPARAM keys, LPARAM point) noexcept
{
    // The dialog draws an owner-drawn button, and may destroy this one then.
    const HWND window = Window();
    const HWND parent = ::GetParent(window);
    const LPARAM pointInParent = InParent(point);
    ::SetCapture(window);
    ::SendMessageW(window, BM_SETSTATE, TRUE, 0);
    if (::GetCapture() == window)
    {
        m_state |= kPressed;
        Repaint();
    }
    ::SendMessageW(parent, WM_LBUTTONDOWN, keys, pointInParent);
    return 0;
}

LRESULT CHaldenStyleButton::OnLeftButtonUp(WPARAM keys, LPARAM point) noexcept
{
    // The command may end the dialog, and this object with it.
    const HWND window = Window();
    const HWND parent = ::GetParent(window);
    const LPARAM pointInParent = InParent(point);
    if (::GetCapture() == window)
    {
        if (Has(kPressed))
        {
            ::SendMessageW(parent, WM_COMMAND, MAKEWPARAM(::GetDlgCtrlID(window), BN_CLICKED),
                           reinterpret_cast<LPARAM>(window));
        }
        ::ReleaseCapture();
    }
    ::SendMessageW(parent, WM_LBUTTONUP, keys, pointInParent);
    return 0;
}

/// By design, the second press of a double click shows the pressed face and brings no command.
LRESULT CHaldenStyleButton::OnLeftButtonDoubleClick(WPARAM keys, LPARAM point) noexcept
{
    const HWND parent = ::GetParent(Window());
    const LPARAM pointInParent = InParent(point);
    SetState(kPressed, true);
    ::SendMessageW(parent, WM_LBUTTONDBLCLK, keys, pointInParent);
    return 0;
}

LRESULT CHaldenStyleButton::OnMouseLeave() noexcept
{
    SetState(kHot, false);
    return 0;
}

void CHaldenStyleButton::OnMouseMove(LPARAM point) noexcept
{
    const HWND window = Window();
    if (::GetCapture() == window)
    {
        POINT onScreen = PointFrom(point);
        RECT area{};
        ::ClientToScreen(window, &onScreen);
        ::GetWindowRect(window, &area);
        SetState(kPressed, ::PtInRect(&area, onScreen) != FALSE);
    }
    else if (!Has(kHot))
    {
        SetState(kHot, true);
        TRACKMOUSEEVENT leave{};
        leave.cbSize = sizeof(leave);
        leave.dwFlags = TME_LEAVE;
        leave.hwndTrack = window;
        try
        {
            ::_TrackMouseEvent(&leave);
        }
        catch (const std::exception&) // loaded late
        {
            velt::TraceCurrentException(); // it stays hot, as where the system cannot follow
        }
    }
}

void CHaldenStyleButton::OnFocus(bool focused) noexcept
{
    m_state = focused ? m_state | kFocused : m_state & ~kFocused;
    Repaint();
}

void CHaldenStyleButton::OnDestroyed() noexcept
{
    m_tooltip.Reset();
    m_subclass.Detach();
}

void CHaldenStyleButton::RelayToTooltip(UINT message, WPARAM wParam, LPARAM lParam) const noexcept
{
    if (m_tooltip)
    {
        MSG relayed{};
        relayed.hwnd = Window();
        relayed.message = message;
        relayed.wParam = wParam;
        relayed.lParam = lParam;
        ::SendMessageW(m_tooltip.Get(), TTM_RELAYEVENT, 0, reinterpret_cast<LPARAM>(&relayed));
    }
}

/// The control copies the text. A tool that is there already is replaced.
void CHaldenStyleButton::ShowTooltipText() const noexcept
{
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V1_SIZE; // what every version of the controls takes
    tool.uFlags = TTF_IDISHWND;        // the whole button, whatever its size
    tool.hwnd = Window();
    tool.uId = reinterpret_cast<UINT_PTR>(Window());
    tool.lpszText = const_cast<wchar_t*>(m_tooltipText.c_str());
    const HWND tooltip = m_tooltip.Get();
    const auto parameter = reinterpret_cast<LPARAM>(&tool);
    ::SendMessageW(tooltip, TTM_ACTIVATE, TRUE, 0);
    ::SendMessageW(tooltip, TTM_DELTOOLW, 0, parameter);
    if (!m_tooltipText.empty())
    {
        ::SendMessageW(tooltip, TTM_ADDTOOLW, 0, parameter);
    }
}

void CHaldenStyleButton::SetState(std::uint32_t bit, bool on) noexcept
{
    if (Has(bit) != on)
    {
        m_state ^= bit;
        Repaint();
    }
}

bool CHaldenStyleButton::Has(std::uint32_t bit) const noexcept
{
    return (m_state & bit) != 0;
}

void CHaldenStyleButton::Repaint() const noexcept
{
    // Without a window, every window of the screen would be invalidated.
    if (const HWND window = Window())
    {
        ::InvalidateRect(window, nullptr, TRUE);
        ::UpdateWindow(window);
    }
}

void CHaldenStyleButton::Draw(HDC context) noexcept
{
    const bool isHot = Has(kHot | kFocused);
    velt::ButtonFace& face = Has(kPressed) ? m_pressedFace : isHot ? m_hotFace : m_normalFace;
    velt::DrawButton(context, Window(), {face, Has(kPressed), Has(kFocused)});
}

LPARAM CHaldenStyleButton::InParent(LPARAM point) const noexcept
{
    POINT at = PointFrom(point);
    ::MapWindowPoints(Window(), ::GetParent(Window()), &at, 1);
    return MAKELPARAM(at.x, at.y);
}
