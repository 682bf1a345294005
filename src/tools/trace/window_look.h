#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>

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

struct BrushTraits
{
    using Type = HBRUSH;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type brush) noexcept
    {
        ::DeleteObject(brush);
    }
};
using UniqueBrush = UniqueHandle<BrushTraits>;

/// A font for the records that a user has chosen.
struct FontChoice
{
    static constexpr int kSmallest = 40; // tenths of a point
    static constexpr int kLargest = 720;

    std::wstring name;
    int tenthsOfPoint = 0;

    bool operator==(const FontChoice&) const = default;
};

/// The colours of the viewer's windows.
struct Palette
{
    static constexpr std::size_t kHighlights = 5;

    COLORREF window; // behind records and texts that are typed
    COLORREF text;
    COLORREF face; // behind all else
    COLORREF faceText;
    COLORREF control; // of buttons, choices and menus in the dark look
    COLORREF edge;    // around them, and behind what the mouse is on
    COLORREF faint;   // their text when they cannot be used
    COLORREF error;
    COLORREF detail;
    COLORREF malformed;
    std::array<COLORREF, kHighlights> highlights; // behind records; text stays readable on them
};

/// Sizes, fonts and colours for the screen that a window is on and the user's settings.
class WindowLook
{
public:
    /// Of a screen with this many dots an inch.
    explicit WindowLook(int dpi, const std::optional<FontChoice>& font = std::nullopt);

    /// Dots an inch of the window's screen; of the system's where that is all it knows.
    static int DpiOf(HWND window) noexcept;

    int Dpi() const noexcept
    {
        return m_dpi;
    }

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

    /// One whose characters are equally wide, so that indentation can be seen, or the user's.
    HFONT FixedFont() const noexcept
    {
        return m_fixedFont.Get();
    }

    /// Whether the user wants programs to be dark. With high contrast no: then the system's colours
    /// are right.
    bool IsDark() const noexcept
    {
        return m_dark;
    }

    bool IsHighContrast() const noexcept
    {
        return m_highContrast;
    }

    const Palette& Colors() const noexcept
    {
        return m_palette;
    }

    /// A brush of the colour behind all but records; and of the one behind these.
    HBRUSH FaceBrush() const noexcept
    {
        return m_faceBrush.Get();
    }

    HBRUSH WindowBrush() const noexcept
    {
        return m_windowBrush.Get();
    }

    /// Answers a control that asks for its colours (WM_CTLCOLOR...); null leaves them to the
    /// system.
    HBRUSH ColorsFor(UINT message, HDC screen) const noexcept;

    /// Has the system draw a window's frame and scroll bars to match.
    void ApplyTo(HWND window) const noexcept;

private:
    int m_dpi;
    UniqueFont m_font;
    UniqueFont m_fixedFont;
    bool m_highContrast;
    bool m_dark;
    Palette m_palette;
    UniqueBrush m_faceBrush;
    UniqueBrush m_windowBrush;
};
} // namespace velt
