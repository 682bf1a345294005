#include "tools/trace/dark_controls.h"

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace velt
{
namespace
{
std::wstring_view ClassOf(HWND window, std::array<wchar_t, 64>& name) noexcept
{
    const int length = ::GetClassNameW(window, name.data(), static_cast<int>(name.size()));
    return {name.data(), static_cast<std::size_t>(length)};
}

bool Is(std::wstring_view name, const wchar_t* type) noexcept
{
    return ::CompareStringOrdinal(name.data(), static_cast<int>(name.size()), type, -1, TRUE) ==
           CSTR_EQUAL;
}

/// Whether the user has not asked for letters, or for the rectangle around what has the keyboard.
bool Hides(HWND window, UINT what) noexcept
{
    return (static_cast<UINT>(::SendMessageW(window, WM_QUERYUISTATE, 0, 0)) & what) != 0;
}

/// A face with its edge.
void FillFace(HDC screen, const RECT& place, COLORREF edge, COLORREF face) noexcept
{
    const auto brush = static_cast<HBRUSH>(::GetStockObject(DC_BRUSH));
    ::SetDCBrushColor(screen, face);
    ::FillRect(screen, &place, brush);
    ::SetDCBrushColor(screen, edge);
    ::FrameRect(screen, &place, brush);
}

void DrawLabel(HDC screen, const wchar_t* text, RECT place, COLORREF color, UINT format) noexcept
{
    ::SetBkMode(screen, TRANSPARENT);
    ::SetTextColor(screen, color);
    ::DrawTextW(screen, text, -1, &place, format | DT_VCENTER | DT_SINGLELINE | DT_END_ELLIPSIS);
}

/// The rectangle around what has the keyboard; its colours are those of the text.
void DrawFocus(HDC screen, RECT place, const WindowLook& look) noexcept
{
    ::InflateRect(&place, -look.Scaled(3), -look.Scaled(3));
    ::SetTextColor(screen, look.Colors().faceText);
    ::SetBkColor(screen, look.Colors().control);
    ::DrawFocusRect(screen, &place);
}

void FillBehindColumns(HWND header, HDC screen, const WindowLook& look) noexcept
{
    RECT rest{};
    ::GetClientRect(header, &rest);
    const int columns = Header_GetItemCount(header);
    for (int i = 0; i < columns; ++i)
    {
        RECT column{};
        Header_GetItemRect(header, i, &column);
        rest.left = std::max(rest.left, column.right);
    }
    ::FillRect(screen, &rest, look.FaceBrush());
}

std::optional<LRESULT> PaintHeader(const NMCUSTOMDRAW& draw, const WindowLook& look) noexcept
{
    const HWND header = draw.hdr.hwndFrom;
    if (draw.dwDrawStage == CDDS_PREPAINT)
    {
        RECT whole{};
        ::GetClientRect(header, &whole);
        ::FillRect(draw.hdc, &whole, look.FaceBrush());
        return CDRF_NOTIFYITEMDRAW | CDRF_NOTIFYPOSTPAINT;
    }
    if (draw.dwDrawStage == CDDS_POSTPAINT)
    {
        FillBehindColumns(header, draw.hdc, look);
        return CDRF_DODEFAULT;
    }
    if (draw.dwDrawStage != CDDS_ITEMPREPAINT)
    {
        return CDRF_DODEFAULT;
    }
    std::array<wchar_t, 64> text{};
    HDITEMW item{};
    item.mask = HDI_TEXT | HDI_FORMAT;
    item.pszText = text.data();
    item.cchTextMax = static_cast<int>(text.size());
    ::SendMessageW(header, HDM_GETITEMW, draw.dwItemSpec, reinterpret_cast<LPARAM>(&item));
    RECT place = draw.rc;
    ::FillRect(draw.hdc, &place, look.FaceBrush());
    RECT edge = place; // the line that divides it from the next
    edge.left = edge.right - 1;
    ::FillRect(draw.hdc, &edge, look.WindowBrush());
    place.left += look.Scaled(6);
    place.right -= look.Scaled(6);
    const bool right = (item.fmt & HDF_JUSTIFYMASK) == HDF_RIGHT;
    DrawLabel(draw.hdc, text.data(), place, look.Colors().faceText,
              (right ? DT_RIGHT : DT_LEFT) | DT_NOPREFIX);
    return CDRF_SKIPDEFAULT;
}

LRESULT CALLBACK HeaderProc(HWND list, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR id,
                            DWORD_PTR data) noexcept
{
    const auto& look = *reinterpret_cast<const WindowLook*>(data);
    if (message == WM_NOTIFY && look.IsDark())
    {
        // Not all of these structures are aligned: that of a key is packed.
        NMHDR header;
        std::memcpy(&header, reinterpret_cast<const void*>(lParam), sizeof(header));
        if (header.code == NM_CUSTOMDRAW && header.hwndFrom == ListView_GetHeader(list))
        {
            if (const auto result = PaintHeader(*reinterpret_cast<NMCUSTOMDRAW*>(lParam), look))
            {
                return *result;
            }
        }
    }
    if (message == WM_NCDESTROY)
    {
        ::RemoveWindowSubclass(list, &HeaderProc, id);
    }
    return ::DefSubclassProc(list, message, wParam, lParam);
}

void PaintChoice(HWND choice, HDC screen, const WindowLook& look) noexcept
{
    RECT whole{};
    ::GetClientRect(choice, &whole);
    COMBOBOXINFO info{};
    info.cbSize = sizeof(info);
    if (!::GetComboBoxInfo(choice, &info))
    {
        return;
    }
    const Palette& colors = look.Colors();
    FillFace(screen, whole, colors.edge, colors.control);
    const HGDIOBJ font =
        ::SelectObject(screen, reinterpret_cast<HFONT>(::SendMessageW(choice, WM_GETFONT, 0, 0)));
    const COLORREF color = ::IsWindowEnabled(choice) ? colors.faceText : colors.faint;
    std::array<wchar_t, 256> text{};
    ::GetWindowTextW(choice, text.data(), static_cast<int>(text.size()));
    RECT place = info.rcItem;
    place.left += look.Scaled(2);
    DrawLabel(screen, text.data(), place, color, DT_LEFT | DT_NOPREFIX);
    ::SelectObject(screen, font);

    // The arrow that says that there is a list.
    const int size = look.Scaled(4);
    const int x = static_cast<int>(info.rcButton.left + info.rcButton.right) / 2;
    const int y = static_cast<int>(whole.top + whole.bottom - size) / 2;
    const std::array<POINT, 3> arrow{{{x - size, y}, {x + size, y}, {x, y + size}}};
    const HGDIOBJ brush = ::SelectObject(screen, ::GetStockObject(DC_BRUSH));
    const HGDIOBJ pen = ::SelectObject(screen, ::GetStockObject(NULL_PEN));
    ::SetDCBrushColor(screen, color);
    ::Polygon(screen, arrow.data(), static_cast<int>(arrow.size()));
    ::SelectObject(screen, pen);
    ::SelectObject(screen, brush);
    if (::GetFocus() == choice && !Hides(choice, UISF_HIDEFOCUS))
    {
        DrawFocus(screen, whole, look);
    }
}

LRESULT CALLBACK ChoiceProc(HWND choice, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR id,
                            DWORD_PTR data) noexcept
{
    const auto& look = *reinterpret_cast<const WindowLook*>(data);
    if (message == WM_PAINT && look.IsDark())
    {
        PAINTSTRUCT paint{};
        const HDC screen = ::BeginPaint(choice, &paint);
        PaintChoice(choice, screen, look);
        ::EndPaint(choice, &paint);
        return 0;
    }
    if (message == WM_NCDESTROY)
    {
        ::RemoveWindowSubclass(choice, &ChoiceProc, id);
    }
    const LRESULT result = ::DefSubclassProc(choice, message, wParam, lParam);
    if (look.IsDark() && (message == CB_SETCURSEL || message == WM_COMMAND ||
                          message == WM_KEYDOWN || message == WM_CHAR || message == WM_MOUSEWHEEL ||
                          message == WM_SETFOCUS || message == WM_KILLFOCUS))
    {
        ::InvalidateRect(choice, nullptr, FALSE); // it may have painted without being asked to
    }
    return result;
}
} // namespace

void PaintByLook(HWND control, const WindowLook& look) noexcept
{
    std::array<wchar_t, 64> name{};
    const std::wstring_view type = ClassOf(control, name);
    const auto data = reinterpret_cast<DWORD_PTR>(&look);
    if (Is(type, WC_LISTVIEWW))
    {
        ::SetWindowSubclass(control, &HeaderProc, 0, data);
    }
    else if (Is(type, WC_COMBOBOXW))
    {
        ::SetWindowSubclass(control, &ChoiceProc, 0, data);
    }
}

std::optional<LRESULT> PaintButton(LPARAM notification, const WindowLook& look) noexcept
{
    NMHDR header;
    std::memcpy(&header, reinterpret_cast<const void*>(notification), sizeof(header));
    std::array<wchar_t, 64> name{};
    if (!look.IsDark() || header.code != NM_CUSTOMDRAW ||
        !Is(ClassOf(header.hwndFrom, name), WC_BUTTONW))
    {
        return std::nullopt;
    }
    const auto& draw = *reinterpret_cast<const NMCUSTOMDRAW*>(notification);
    if (draw.dwDrawStage != CDDS_PREERASE && draw.dwDrawStage != CDDS_PREPAINT)
    {
        return CDRF_DODEFAULT;
    }
    const HWND button = header.hwndFrom;
    const auto is = [&draw](UINT state) { return (draw.uItemState & state) != 0; };
    const bool standard =
        (::GetWindowLongPtrW(button, GWL_STYLE) & BS_TYPEMASK) == BS_DEFPUSHBUTTON;
    const Palette& colors = look.Colors();
    RECT place{};
    ::GetClientRect(button, &place);
    FillFace(draw.hdc, place, standard ? colors.faceText : colors.edge,
             is(CDIS_SELECTED) ? colors.window
             : is(CDIS_HOT)    ? colors.edge
                               : colors.control);
    std::array<wchar_t, 128> text{};
    ::GetWindowTextW(button, text.data(), static_cast<int>(text.size()));
    DrawLabel(draw.hdc, text.data(), place, is(CDIS_DISABLED) ? colors.faint : colors.faceText,
              DT_CENTER | (Hides(button, UISF_HIDEACCEL) ? DT_HIDEPREFIX : 0u));
    if (is(CDIS_FOCUS) && !Hides(button, UISF_HIDEFOCUS))
    {
        DrawFocus(draw.hdc, place, look);
    }
    return CDRF_SKIPDEFAULT;
}
} // namespace velt
