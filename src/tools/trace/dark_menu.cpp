#include "tools/trace/dark_menu.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace velt
{
namespace
{
constexpr int kMargin = 6; // at 96 dots an inch
constexpr int kCheckMark = 24;

SIZE SizeOf(HDC screen, std::wstring_view text) noexcept
{
    RECT place{};
    ::DrawTextW(screen, text.data(), static_cast<int>(text.size()), &place,
                DT_CALCRECT | DT_SINGLELINE);
    return {place.right, place.bottom};
}

/// What stands before the tab, and what behind it.
std::wstring_view NameOf(std::wstring_view text) noexcept
{
    return text.substr(0, text.find(L'\t'));
}

std::wstring_view KeyOf(std::wstring_view text) noexcept
{
    const std::size_t tab = text.find(L'\t');
    return tab == std::wstring_view::npos ? std::wstring_view() : text.substr(tab + 1);
}

wchar_t Upper(wchar_t letter) noexcept
{
    ::CharUpperBuffW(&letter, 1);
    return letter;
}

wchar_t LetterOf(std::wstring_view text) noexcept
{
    const std::size_t mark = text.find(L'&');
    return mark != std::wstring_view::npos && mark + 1 < text.size() ? Upper(text[mark + 1])
                                                                     : L'\0';
}
} // namespace

DarkMenu::DarkMenu(HWND window) : m_window(window)
{
    Collect(::GetMenu(window), true);
    for (Item& item : m_items) // which stay where they are from now on
    {
        item.name = {static_cast<DWORD>(MSAA_MENU_SIG), static_cast<DWORD>(item.text.size()),
                     item.text.data()};
    }
}

void DarkMenu::Collect(HMENU menu, bool isBar) // NOLINT(misc-no-recursion): as deep as the menus
{
    const int count = ::GetMenuItemCount(menu);
    for (int i = 0; i < count; ++i)
    {
        std::array<wchar_t, 256> text{};
        MENUITEMINFOW info{};
        info.cbSize = sizeof(info);
        info.fMask = MIIM_FTYPE | MIIM_STRING | MIIM_SUBMENU;
        info.dwTypeData = text.data();
        info.cch = static_cast<UINT>(text.size());
        if (!::GetMenuItemInfoW(menu, static_cast<UINT>(i), TRUE, &info))
        {
            continue;
        }
        Item& item = m_items.emplace_back();
        item.menu = menu;
        item.position = static_cast<UINT>(i);
        item.type = info.fType;
        item.text = text.data();
        item.inBar = isBar;
        if (info.hSubMenu)
        {
            Collect(info.hSubMenu, false);
        }
    }
}

void DarkMenu::SetLook(const WindowLook& look)
{
    m_look = &look;
    if (!look.IsDark() && !m_drawn)
    {
        return;
    }
    m_drawn = look.IsDark();
    for (Item& item : m_items)
    {
        MENUITEMINFOW info{};
        info.cbSize = sizeof(info);
        info.fMask = MIIM_FTYPE | MIIM_DATA | (item.IsLine() ? 0u : MIIM_STRING);
        info.fType = item.type | (m_drawn ? MFT_OWNERDRAW : 0u);
        info.dwItemData = m_drawn ? reinterpret_cast<ULONG_PTR>(&item) : 0;
        info.dwTypeData = item.text.data();
        ::SetMenuItemInfoW(item.menu, item.position, TRUE, &info);
    }
    MENUINFO background{};
    background.cbSize = sizeof(background);
    background.fMask = MIM_BACKGROUND | MIM_APPLYTOSUBMENUS;
    background.hbrBack = m_drawn ? look.FaceBrush() : nullptr;
    ::SetMenuInfo(::GetMenu(m_window), &background);
    ::DrawMenuBar(m_window);
}

std::optional<LRESULT> DarkMenu::Handle(UINT message, WPARAM wParam, LPARAM lParam) const noexcept
{
    if (!m_drawn)
    {
        return std::nullopt;
    }
    switch (message)
    {
    case WM_MEASUREITEM:
    {
        auto& measure = *reinterpret_cast<MEASUREITEMSTRUCT*>(lParam);
        if (measure.CtlType != ODT_MENU)
        {
            return std::nullopt;
        }
        Measure(measure);
        return TRUE;
    }
    case WM_DRAWITEM:
    {
        const auto& draw = *reinterpret_cast<const DRAWITEMSTRUCT*>(lParam);
        if (draw.CtlType != ODT_MENU)
        {
            return std::nullopt;
        }
        Draw(draw);
        return TRUE;
    }
    case WM_MENUCHAR:
        return OnLetter(static_cast<wchar_t>(LOWORD(wParam)), reinterpret_cast<HMENU>(lParam));
    case WM_NCPAINT:
    case WM_NCACTIVATE:
    {
        const LRESULT result = ::DefWindowProcW(m_window, message, wParam, lParam);
        FillRestOfBar();
        return result;
    }
    default:
        return std::nullopt;
    }
}

const DarkMenu::Item* DarkMenu::ItemOf(ULONG_PTR data) const noexcept
{
    const auto found = std::find_if(m_items.begin(), m_items.end(), [&](const Item& item) {
        return reinterpret_cast<ULONG_PTR>(&item) == data;
    });
    return found != m_items.end() ? &*found : nullptr;
}

void DarkMenu::Measure(MEASUREITEMSTRUCT& measure) const noexcept
{
    const Item* const item = ItemOf(measure.itemData);
    if (!item)
    {
        return;
    }
    if (item->IsLine())
    {
        measure.itemHeight = static_cast<UINT>(m_look->Scaled(7));
        return;
    }
    const HDC screen = ::GetDC(m_window);
    const HGDIOBJ font = ::SelectObject(screen, m_look->Font());
    const SIZE name = SizeOf(screen, NameOf(item->text));
    const SIZE key = SizeOf(screen, KeyOf(item->text));
    ::SelectObject(screen, font);
    ::ReleaseDC(m_window, screen);
    // The system adds some room at both ends.
    int width = static_cast<int>(name.cx);
    int height = static_cast<int>(name.cy) + m_look->Scaled(4);
    if (!item->inBar)
    {
        const int between = key.cx != 0 ? m_look->Scaled(4 * kMargin) : 0;
        width += m_look->Scaled(kCheckMark + kMargin) + between + static_cast<int>(key.cx);
        height += m_look->Scaled(4);
    }
    measure.itemWidth = static_cast<UINT>(width);
    measure.itemHeight = static_cast<UINT>(height);
}

void DarkMenu::Draw(const DRAWITEMSTRUCT& draw) const noexcept
{
    const Item* const item = ItemOf(draw.itemData);
    if (!item)
    {
        return;
    }
    const auto is = [&draw](UINT state) { return (draw.itemState & state) != 0; };
    const Palette& colors = m_look->Colors();
    const auto brush = static_cast<HBRUSH>(::GetStockObject(DC_BRUSH));
    const bool chosen = !item->IsLine() && is(ODS_SELECTED | ODS_HOTLIGHT);
    ::SetDCBrushColor(draw.hDC, chosen ? colors.edge : colors.face);
    RECT place = draw.rcItem;
    ::FillRect(draw.hDC, &place, brush);
    if (item->IsLine())
    {
        place.top = (place.top + place.bottom) / 2;
        place.bottom = place.top + 1;
        ::SetDCBrushColor(draw.hDC, colors.edge);
        ::FillRect(draw.hDC, &place, brush);
        return;
    }
    const HGDIOBJ font = ::SelectObject(draw.hDC, m_look->Font());
    ::SetBkMode(draw.hDC, TRANSPARENT);
    ::SetTextColor(draw.hDC, is(ODS_GRAYED | ODS_DISABLED) ? colors.faint : colors.faceText);
    const UINT format = DT_SINGLELINE | DT_VCENTER | (is(ODS_NOACCEL) ? DT_HIDEPREFIX : 0u);
    const std::wstring_view name = NameOf(item->text);
    const std::wstring_view key = KeyOf(item->text);
    if (is(ODS_CHECKED))
    {
        DrawCheckMark(draw.hDC, place);
    }
    place.left += item->inBar ? 0 : m_look->Scaled(kCheckMark);
    place.right -= item->inBar ? 0 : m_look->Scaled(kMargin);
    ::DrawTextW(draw.hDC, name.data(), static_cast<int>(name.size()), &place,
                format | (item->inBar ? DT_CENTER : DT_LEFT));
    ::DrawTextW(draw.hDC, key.data(), static_cast<int>(key.size()), &place, format | DT_RIGHT);
    ::SelectObject(draw.hDC, font);
}

void DarkMenu::DrawCheckMark(HDC screen, const RECT& place) const noexcept
{
    const int size = m_look->Scaled(3);
    const int x = static_cast<int>(place.left) + m_look->Scaled(kCheckMark) / 2;
    const int y = static_cast<int>(place.top + place.bottom) / 2;
    const HGDIOBJ pen = ::SelectObject(
        screen, ::CreatePen(PS_SOLID, std::max(m_look->Scaled(2), 1), m_look->Colors().faceText));
    const std::array<POINT, 3> mark{{{x - size, y}, {x, y + size}, {x + 2 * size, y - size}}};
    ::Polyline(screen, mark.data(), static_cast<int>(mark.size()));
    ::DeleteObject(::SelectObject(screen, pen));
}

/// The system looks for no letters in what it does not draw.
std::optional<LRESULT> DarkMenu::OnLetter(wchar_t letter, HMENU menu) const noexcept
{
    const auto found = std::find_if(m_items.begin(), m_items.end(), [&](const Item& item) {
        return item.menu == menu && letter != L'\0' && LetterOf(item.text) == Upper(letter);
    });
    return found != m_items.end()
               ? std::optional<LRESULT>(MAKELRESULT(found->position, MNC_EXECUTE))
               : std::nullopt;
}

/// What is right of the last item, and the line below the bar, which the system draws light.
void DarkMenu::FillRestOfBar() const noexcept
{
    MENUBARINFO bar{};
    bar.cbSize = sizeof(bar);
    RECT last{};
    RECT window{};
    const HMENU menu = ::GetMenu(m_window);
    if (!::GetMenuBarInfo(m_window, OBJID_MENU, 0, &bar) ||
        !::GetMenuItemRect(m_window, menu, static_cast<UINT>(::GetMenuItemCount(menu)) - 1,
                           &last) ||
        !::GetWindowRect(m_window, &window))
    {
        return;
    }
    RECT rest = bar.rcBar;
    RECT line = bar.rcBar;
    rest.left = last.right;
    line.top = line.bottom;
    ++line.bottom;
    const HDC screen = ::GetWindowDC(m_window);
    for (RECT place : {rest, line})
    {
        ::OffsetRect(&place, -static_cast<int>(window.left), -static_cast<int>(window.top));
        ::FillRect(screen, &place, m_look->FaceBrush());
    }
    ::ReleaseDC(m_window, screen);
}
} // namespace velt
