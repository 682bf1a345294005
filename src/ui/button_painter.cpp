#include "ui/button_painter.h"

#include "foundation/high_contrast.h"
#include "ui/button_text.h"
#include "ui/drawing_scopes.h"
#include "ui/gdi_handles.h"

#include <array>
#include <string_view>

namespace velt
{
namespace
{
constexpr int kTextMargin = 5;
constexpr std::size_t kLongestText = 256;
constexpr COLORREF kTextColour = RGB(0, 0, 0);
constexpr COLORREF kDisabledTextColour = RGB(180, 180, 180);

int Length(std::wstring_view text) noexcept
{
    return static_cast<int>(text.size());
}

Size Measure(HDC context, std::wstring_view text) noexcept
{
    SIZE extent{};
    ::GetTextExtentPoint32W(context, text.data(), Length(text), &extent);
    return {extent.cx, extent.cy};
}

void DrawAt(HDC context, Point at, const RECT& area, std::wstring_view text) noexcept
{
    ::ExtTextOutW(context, at.x, at.y, ETO_CLIPPED, &area, text.data(),
                  static_cast<UINT>(text.size()), nullptr);
}

void DrawTwoLines(HDC context, RECT area, const TwoLines& lines, LONG escapement) noexcept
{
    const TwoLinePlaces places =
        PlaceTwoLines({area.left, area.top, area.right, area.bottom}, Measure(context, lines.first),
                      Measure(context, lines.second), escapement);
    DrawAt(context, places.first, area, lines.first);
    DrawAt(context, places.second, area, lines.second);
}

void DrawOneLine(HDC context, RECT area, std::wstring_view text, LONG escapement) noexcept
{
    const std::optional<Point> at = PlaceOneLine({area.left, area.top, area.right, area.bottom},
                                                 Measure(context, text), escapement);
    if (!at)
    {
        return; // a font that runs another way
    }
    if (text.find(L'&') != text.npos)
    {
        ::DrawTextW(context, text.data(), Length(text), &area, DT_CENTER);
    }
    else
    {
        DrawAt(context, *at, area, text);
    }
}

COLORREF TextColour(bool isEnabled, bool isHighContrast) noexcept
{
    if (isHighContrast)
    {
        return ::GetSysColor(isEnabled ? COLOR_BTNTEXT : COLOR_GRAYTEXT);
    }
    return isEnabled ? kTextColour : kDisabledTextColour;
}

void DrawButtonText(HDC context, HWND button, const RECT& client, COLORREF colour) noexcept
{
    std::array<wchar_t, kLongestText + 1> buffer{};
    const int length = ::GetWindowTextW(button, buffer.data(), static_cast<int>(buffer.size()));
    const std::wstring_view text(buffer.data(), static_cast<std::size_t>(length));
    if (text.empty())
    {
        return;
    }
    auto* font = reinterpret_cast<HGDIOBJ>(::SendMessageW(button, WM_GETFONT, 0, 0));
    LOGFONTW attributes{};
    ::GetObjectW(font ? font : ::GetStockObject(DEFAULT_GUI_FONT), sizeof(attributes), &attributes);
    const UniqueFont ownFont(::CreateFontIndirectW(&attributes));
    if (!ownFont)
    {
        return;
    }
    const SelectScope selected(context, ownFont.Get());
    ::SetBkMode(context, TRANSPARENT);
    ::SetTextColor(context, colour);
    RECT area = client;
    ::InflateRect(&area, -kTextMargin, -kTextMargin);
    if (const std::optional<TwoLines> lines = SplitAtLineFeed(text))
    {
        DrawTwoLines(context, area, *lines, attributes.lfEscapement);
    }
    else
    {
        DrawOneLine(context, area, text, attributes.lfEscapement);
    }
}

void DrawSystemFace(HDC context, RECT client, const ButtonLook& look) noexcept
{
    ::DrawFrameControl(context, &client, DFC_BUTTON,
                       DFCS_BUTTONPUSH | (look.isPressed ? DFCS_PUSHED : 0U));
    if (look.isFocused)
    {
        ::InflateRect(&client, -kTextMargin + 1, -kTextMargin + 1);
        ::DrawFocusRect(context, &client);
    }
}

void FillWithParentsBrush(HDC target, HWND button, const RECT& client) noexcept
{
    const LRESULT brush =
        ::SendMessageW(::GetParent(button), WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(target),
                       reinterpret_cast<LPARAM>(button));
    if (brush != 0)
    {
        ::FillRect(target, &client, reinterpret_cast<HBRUSH>(brush));
    }
}
} // namespace

void DrawButton(HDC target, HWND button, const ButtonLook& look) noexcept
{
    const bool isHighContrast = IsHighContrastOn();
    RECT client{};
    ::GetClientRect(button, &client);
    FillWithParentsBrush(target, button, client);

    const UniqueMemoryDc memory(::CreateCompatibleDC(target));
    const UniqueBitmap picture(::CreateCompatibleBitmap(target, client.right, client.bottom));
    if (!memory || !picture)
    {
        return;
    }
    // By design, the picture is not cleared: where the face is transparent, a button shows what a
    // new bitmap holds, and never the fill, which the last copy covers.
    const SelectScope selected(memory.Get(), picture.Get());
    if (isHighContrast)
    {
        DrawSystemFace(memory.Get(), client, look);
    }
    else
    {
        look.face.Draw(memory.Get(), {client.right, client.bottom});
    }
    DrawButtonText(memory.Get(), button, client,
                   TextColour(::IsWindowEnabled(button) != FALSE, isHighContrast));
    ::BitBlt(target, 0, 0, client.right, client.bottom, memory.Get(), 0, 0, SRCCOPY);
}
} // namespace velt
