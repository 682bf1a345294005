#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

namespace velt
{
struct FontTraits
{
    using Type = HFONT;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type font) noexcept
    {
        ::DeleteObject(font);
    }
};
using UniqueFont = UniqueHandle<FontTraits>;

/// Sizes and fonts for the screen that a window is on.
class WindowLook
{
public:
    /// Of a screen with this many dots an inch.
    explicit WindowLook(int dpi);

    /// Dots an inch of the window's screen; of the system's where that is all it knows.
    static int DpiOf(HWND window) noexcept;

    /// A length that was meant for 96 dots an inch.
    int Scaled(int length) const noexcept
    {
        return ::MulDiv(length, m_dpi, 96);
    }

    /// The font of messages and controls.
    HFONT Font() const noexcept
    {
        return m_font.Get();
    }

    /// One whose characters are equally wide, so that indentation can be seen.
    HFONT FixedFont() const noexcept
    {
        return m_fixedFont.Get();
    }

private:
    int m_dpi;
    UniqueFont m_font;
    UniqueFont m_fixedFont;
};
} // namespace velt
