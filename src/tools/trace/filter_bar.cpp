#include "tools/trace/filter_bar.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/trace/dark_controls.h"
#include "tools/trace/resource_ids.h"

#include <windows.h>

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <vector>

namespace velt
{
namespace
{
struct LevelChoice
{
    std::int32_t highest;
    const wchar_t* name;
};

constexpr std::array<LevelChoice, 4> kLevels{{
    {TraceFilter::kAllLevels, L"All levels"},
    {1, L"1: errors"},
    {3, L"up to 3: details"},
    {4, L"up to 4: calls"},
}};

HWND MakeChild(HWND parent, const wchar_t* type, const wchar_t* text, DWORD style, DWORD exStyle,
               int id)
{
    const HWND window = ::CreateWindowExW(
        exStyle, type, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0, parent,
        reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), ::GetModuleHandleW(nullptr), nullptr);
    if (!window)
    {
        ThrowLastError();
    }
    return window;
}

HWND MakeLabel(HWND parent, const wchar_t* text)
{
    return MakeChild(parent, WC_STATICW, text, SS_LEFT | SS_CENTERIMAGE, 0, -1);
}

HWND MakeField(HWND parent, int id, const wchar_t* cue)
{
    const HWND field =
        MakeChild(parent, WC_EDITW, L"", WS_TABSTOP | ES_AUTOHSCROLL, WS_EX_CLIENTEDGE, id);
    ::SendMessageW(field, EM_SETCUEBANNER, TRUE, reinterpret_cast<LPARAM>(cue));
    return field;
}

std::string TextOf(HWND field)
{
    std::vector<wchar_t> text(static_cast<std::size_t>(::GetWindowTextLengthW(field)) + 1);
    const int length = ::GetWindowTextW(field, text.data(), static_cast<int>(text.size()));
    return Utf8FromWide({text.data(), static_cast<std::size_t>(length)});
}

int WidthOf(HWND label, HFONT font) noexcept
{
    std::array<wchar_t, 64> text{};
    const int length = ::GetWindowTextW(label, text.data(), static_cast<int>(text.size()));
    const HDC screen = ::GetDC(label);
    const HGDIOBJ former = ::SelectObject(screen, font);
    SIZE size{};
    ::GetTextExtentPoint32W(screen, text.data(), length, &size);
    ::SelectObject(screen, former);
    ::ReleaseDC(label, screen);
    return static_cast<int>(size.cx);
}
} // namespace

FilterBar::FilterBar(HWND parent, const TraceFilter& start)
    : m_filterLabel(MakeLabel(parent, L"Filte&r:")),
      m_filter(MakeField(parent, VELT_ID_FILTER, L"text or source")),
      m_levelLabel(MakeLabel(parent, L"Leve&l:")),
      m_level(MakeChild(parent, WC_COMBOBOXW, L"", WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST, 0,
                        VELT_ID_LEVEL)),
      m_highlightLabel(MakeLabel(parent, L"Hi&ghlight:")),
      m_highlight(MakeField(parent, VELT_ID_HIGHLIGHT, L"text or source"))
{
    ::SetWindowTextW(m_filter, WideFromUtf8(start.part.Text()).c_str());
    WPARAM selected = kLevels.size();
    for (std::size_t i = 0; i < kLevels.size(); ++i)
    {
        ::SendMessageW(m_level, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(kLevels[i].name));
        ::SendMessageW(m_level, CB_SETITEMDATA, i, kLevels[i].highest);
        selected = kLevels[i].highest == start.highestLevel ? i : selected;
    }
    if (selected == kLevels.size()) // another level of the command line
    {
        const std::wstring name = L"up to " + std::to_wstring(start.highestLevel);
        ::SendMessageW(m_level, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(name.c_str()));
        ::SendMessageW(m_level, CB_SETITEMDATA, selected, start.highestLevel);
    }
    ::SendMessageW(m_level, CB_SETCURSEL, selected, 0);
}

void FilterBar::SetLook(const WindowLook& look)
{
    for (const HWND window :
         {m_filterLabel, m_filter, m_levelLabel, m_level, m_highlightLabel, m_highlight})
    {
        ::SendMessageW(window, WM_SETFONT, reinterpret_cast<WPARAM>(look.Font()), TRUE);
    }
    PaintByLook(m_level, look);
}

int FilterBar::Place(int left, int top, int width, const WindowLook& look) noexcept
{
    const int gap = look.Scaled(6);
    const int levelWidth = look.Scaled(130);
    RECT level{};
    ::GetWindowRect(m_level, &level);
    // A choice is as high as its font needs, and no other height can be had.
    const int height = static_cast<int>(level.bottom - level.top);

    int labels = 0;
    for (const HWND label : {m_filterLabel, m_levelLabel, m_highlightLabel})
    {
        labels += WidthOf(label, look.Font()) + gap;
    }
    // The two text fields share what the rest leaves.
    const int fieldWidth = std::max((width - labels - levelWidth - 7 * gap) / 2, look.Scaled(60));
    int x = left + gap;
    const auto put = [&](HWND window, int itsWidth, int itsHeight) {
        ::SetWindowPos(window, nullptr, x, top + gap, itsWidth, itsHeight,
                       SWP_NOZORDER | SWP_NOACTIVATE);
        x += itsWidth + gap;
    };
    put(m_filterLabel, WidthOf(m_filterLabel, look.Font()), height);
    put(m_filter, fieldWidth, height);
    x += gap;
    put(m_levelLabel, WidthOf(m_levelLabel, look.Font()), height);
    put(m_level, levelWidth, look.Scaled(200)); // with its list
    x += gap;
    put(m_highlightLabel, WidthOf(m_highlightLabel, look.Font()), height);
    put(m_highlight, fieldWidth, height);
    return height + 2 * gap;
}

TraceFilter FilterBar::Filter() const
{
    TraceFilter filter;
    filter.part = TextOf(m_filter);
    const LRESULT choice = ::SendMessageW(m_level, CB_GETCURSEL, 0, 0);
    if (choice != CB_ERR)
    {
        filter.highestLevel = static_cast<std::int32_t>(
            ::SendMessageW(m_level, CB_GETITEMDATA, static_cast<WPARAM>(choice), 0));
    }
    return filter;
}

TextPattern FilterBar::Highlight() const
{
    return TextOf(m_highlight);
}
} // namespace velt
