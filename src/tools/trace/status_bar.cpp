#include "tools/trace/status_bar.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/trace_export.h"

#include <commctrl.h>

#include <algorithm>

namespace velt
{
namespace
{
enum Part : std::size_t
{
    kRecords,
    kShown,
    kGone,
    kMalformed,
    kSelection,
};
constexpr std::array<int, 5> kWidths{150, 150, 260, 130, -1};
} // namespace

StatusBar::StatusBar(HWND parent)
    : m_window(::CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | SBARS_SIZEGRIP,
                                 0, 0, 0, 0, parent, reinterpret_cast<HMENU>(VELT_ID_STATUS),
                                 ::GetModuleHandleW(nullptr), nullptr))
{
    if (!m_window)
    {
        ThrowLastError();
    }
    ::SetWindowSubclass(m_window, &StatusBar::BarProc, 0, reinterpret_cast<DWORD_PTR>(this));
}

LRESULT CALLBACK StatusBar::BarProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                    UINT_PTR id, DWORD_PTR self) noexcept
{
    const auto* const bar = reinterpret_cast<const StatusBar*>(self);
    const bool dark = bar->m_look && bar->m_look->IsDark();
    if (message == WM_PAINT && dark)
    {
        bar->PaintDark();
        return 0;
    }
    if (message == WM_ERASEBKGND && dark)
    {
        return TRUE;
    }
    if (message == WM_NCDESTROY)
    {
        ::RemoveWindowSubclass(window, &StatusBar::BarProc, id);
    }
    return ::DefSubclassProc(window, message, wParam, lParam);
}

/// The bar knows no dark colours, and as one that its owner draws it would have no texts for a
/// screen reader.
void StatusBar::PaintDark() const noexcept
{
    PAINTSTRUCT paint{};
    const HDC screen = ::BeginPaint(m_window, &paint);
    RECT whole{};
    ::GetClientRect(m_window, &whole);
    ::FillRect(screen, &whole, m_look->FaceBrush());
    const HGDIOBJ former = ::SelectObject(screen, m_look->Font());
    ::SetBkMode(screen, TRANSPARENT);
    ::SetTextColor(screen, m_look->Colors().faceText);
    for (std::size_t part = 0; part < m_texts.size(); ++part)
    {
        RECT place{};
        ::SendMessageW(m_window, SB_GETRECT, part, reinterpret_cast<LPARAM>(&place));
        RECT edge = place;
        edge.left = edge.right - 1;
        ::FillRect(screen, &edge, m_look->WindowBrush());
        std::array<wchar_t, 512> text{};
        if (LOWORD(::SendMessageW(m_window, SB_GETTEXTLENGTHW, part, 0)) < text.size())
        {
            ::SendMessageW(m_window, SB_GETTEXTW, part, reinterpret_cast<LPARAM>(text.data()));
        }
        place.left += m_look->Scaled(3);
        ::DrawTextW(screen, text.data(), -1, &place,
                    DT_LEFT | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX | DT_END_ELLIPSIS);
    }
    ::SelectObject(screen, former);
    ::EndPaint(m_window, &paint);
}

void StatusBar::SetLook(const WindowLook& look)
{
    m_look = &look;
    ::InvalidateRect(m_window, nullptr, TRUE);
    ::SendMessageW(m_window, WM_SETFONT, reinterpret_cast<WPARAM>(look.Font()), TRUE);
    std::array<int, kWidths.size()> edges{};
    int edge = 0;
    std::transform(kWidths.begin(), kWidths.end(), edges.begin(),
                   [&](int width) { return width < 0 ? -1 : edge += look.Scaled(width); });
    ::SendMessageW(m_window, SB_SETPARTS, edges.size(), reinterpret_cast<LPARAM>(edges.data()));
}

void StatusBar::ShowCounts(const TraceSession& session, std::size_t shown, const std::string& state)
{
    const TraceStore& store = session.Store();
    Set(kRecords, FormatCount(store.Size()) + " records");
    Set(kShown, FormatCount(shown) + " shown" + state);
    std::string gone = store.Dropped() == 0 ? std::string("none dropped")
                                            : FormatCount(store.Dropped()) + " oldest dropped";
    if (session.Lost() != 0)
    {
        gone += ", " + FormatCount(session.Lost()) + " lost";
    }
    if (session.Forgotten() != 0)
    {
        gone += ", " + FormatCount(session.Forgotten()) + " forgotten";
    }
    Set(kGone, gone);
    Set(kMalformed, FormatCount(session.Malformed()) + " malformed");
}

void StatusBar::Say(const std::string& text)
{
    Set(kSelection, text);
}

void StatusBar::Set(std::size_t part, const std::string& text)
{
    std::string& shown = m_texts[part];
    if (shown != text)
    {
        shown = text;
        ::SendMessageW(m_window, SB_SETTEXTW, part,
                       reinterpret_cast<LPARAM>(WideFromUtf8(text).c_str()));
    }
}
} // namespace velt
