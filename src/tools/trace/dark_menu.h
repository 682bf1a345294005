#pragma once

#include "tools/trace/window_look.h"

#include <windows.h>

#include <oleacc.h>

#include <deque>
#include <optional>
#include <string>

namespace velt
{
/// The menu of a window, drawn by us while the look is dark: the system has no dark menus that it
/// documents. Otherwise it is the system's. It belongs to the window's thread.
class DarkMenu
{
public:
    explicit DarkMenu(HWND window);

    DarkMenu(const DarkMenu&) = delete;
    DarkMenu& operator=(const DarkMenu&) = delete;

    ~DarkMenu() = default;

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look);

    /// The answer to a message of the window, if it is about the menu.
    std::optional<LRESULT> Handle(UINT message, WPARAM wParam, LPARAM lParam) const noexcept;

private:
    struct Item
    {
        MSAAMENUINFO name{}; // first: there a screen reader looks for the name of a drawn item
        HMENU menu = nullptr;
        UINT position = 0;
        UINT type = 0;     // as the system draws it
        std::wstring text; // with a letter, and behind a tab the key
        bool inBar = false;

        bool IsLine() const noexcept
        {
            return (type & MFT_SEPARATOR) != 0;
        }
    };

    void Collect(HMENU menu, bool isBar);
    const Item* ItemOf(ULONG_PTR data) const noexcept;
    void Measure(MEASUREITEMSTRUCT& measure) const noexcept;
    void Draw(const DRAWITEMSTRUCT& draw) const noexcept;
    void DrawCheckMark(HDC screen, const RECT& place) const noexcept;
    std::optional<LRESULT> OnLetter(wchar_t letter, HMENU menu) const noexcept;
    void FillRestOfBar() const noexcept;

    HWND m_window;
    std::deque<Item> m_items; // where they are is what the menu's items keep
    const WindowLook* m_look = nullptr;
    bool m_drawn = false; // by us
};
} // namespace velt
