#include "tools/trace/window_look.h"

#include "foundation/find_function.h"
#include "foundation/high_contrast.h"

#include <windows.h>

#include <uxtheme.h>

#include <cwchar>

namespace velt
{
namespace
{
int SystemDpi() noexcept
{
    const HDC screen = ::GetDC(nullptr);
    const int dpi = screen ? ::GetDeviceCaps(screen, LOGPIXELSY) : 96;
    ::ReleaseDC(nullptr, screen);
    return dpi;
}

/// What the user has chosen for programs; light where the system does not know the choice.
bool WantsDark() noexcept
{
    DWORD light = 1;
    DWORD size = sizeof(light);
    ::RegGetValueW(HKEY_CURRENT_USER,
                   L"Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize",
                   L"AppsUseLightTheme", RRF_RT_REG_DWORD, nullptr, &light, &size);
    return light == 0;
}

Palette LightPalette() noexcept
{
    return {::GetSysColor(COLOR_WINDOW),
            ::GetSysColor(COLOR_WINDOWTEXT),
            ::GetSysColor(COLOR_BTNFACE),
            ::GetSysColor(COLOR_BTNTEXT),
            ::GetSysColor(COLOR_BTNFACE),
            ::GetSysColor(COLOR_BTNSHADOW),
            ::GetSysColor(COLOR_GRAYTEXT),
            RGB(176, 0, 0),
            RGB(0, 80, 160),
            RGB(160, 0, 160),
            {RGB(255, 243, 160), RGB(200, 240, 200), RGB(200, 225, 255), RGB(255, 215, 210),
             RGB(232, 215, 255)}};
}

/// The system's colours alone: what the user has chosen to be able to read.
Palette HighContrastPalette() noexcept
{
    Palette palette = LightPalette();
    palette.error = palette.text;
    palette.detail = palette.text;
    palette.malformed = palette.text;
    palette.highlights.fill(palette.window); // a colour of the text stands for them
    return palette;
}

Palette DarkPalette() noexcept
{
    return {RGB(25, 25, 25),
            RGB(230, 230, 230),
            RGB(43, 43, 43),
            RGB(230, 230, 230),
            RGB(56, 56, 56),
            RGB(100, 100, 100),
            RGB(140, 140, 140),
            RGB(255, 150, 140),
            RGB(130, 190, 255),
            RGB(225, 160, 255),
            {RGB(78, 68, 0), RGB(20, 74, 32), RGB(16, 58, 100), RGB(98, 32, 28), RGB(72, 40, 104)}};
}
} // namespace

WindowLook::WindowLook(int dpi, const std::optional<FontChoice>& choice)
    : m_dpi(dpi),
      m_highContrast(IsHighContrastOn()),
      m_dark(!m_highContrast && WantsDark()),
      m_palette(m_highContrast ? HighContrastPalette()
                : m_dark       ? DarkPalette()
                               : LightPalette()),
      m_faceBrush(::CreateSolidBrush(m_palette.face)),
      m_windowBrush(::CreateSolidBrush(m_palette.window))
{
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof(metrics);
    if (!::SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0))
    {
        return; // the controls' own fonts
    }
    LOGFONTW font = metrics.lfMessageFont; // for the system's resolution
    font.lfHeight = ::MulDiv(font.lfHeight, dpi, SystemDpi());
    m_font.Reset(::CreateFontIndirectW(&font));
    font.lfPitchAndFamily = FIXED_PITCH | FF_MODERN;
    std::wcscpy(font.lfFaceName, L"Consolas");
    if (choice)
    {
        font.lfPitchAndFamily = DEFAULT_PITCH | FF_DONTCARE;
        font.lfHeight = -::MulDiv(choice->tenthsOfPoint, dpi, 720);
        font.lfFaceName[choice->name.copy(font.lfFaceName, LF_FACESIZE - 1)] = L'\0';
    }
    m_fixedFont.Reset(::CreateFontIndirectW(&font));
}

int WindowLook::DpiOf(HWND window) noexcept
{
    const auto dpiForWindow = FindFunction<UINT(WINAPI*)(HWND)>(
        ::GetModuleHandleW(L"user32.dll"), "GetDpiForWindow"); // since Windows 10
    const UINT dpi = dpiForWindow ? dpiForWindow(window) : 0;
    return dpi != 0 ? static_cast<int>(dpi) : SystemDpi();
}

HBRUSH WindowLook::ColorsFor(UINT message, HDC screen) const noexcept
{
    if (!m_dark)
    {
        return nullptr;
    }
    const bool typed = message == WM_CTLCOLOREDIT || message == WM_CTLCOLORLISTBOX;
    ::SetTextColor(screen, typed ? m_palette.text : m_palette.faceText);
    ::SetBkColor(screen, typed ? m_palette.window : m_palette.face);
    return typed ? m_windowBrush.Get() : m_faceBrush.Get();
}

void WindowLook::ApplyTo(HWND window) const noexcept
{
    const wchar_t* const theme = m_dark ? L"DarkMode_Explorer" : nullptr;
    if ((::GetWindowLongPtrW(window, GWL_STYLE) & WS_CHILD) != 0)
    {
        ::SetWindowTheme(window, theme, nullptr);
        return;
    }
    constexpr DWORD kDarkFrame = 20; // DWMWA_USE_IMMERSIVE_DARK_MODE, since Windows 10 2004
    using SetAttribute = HRESULT(WINAPI*)(HWND, DWORD, const void*, DWORD);
    const BOOL dark = m_dark ? TRUE : FALSE;
    // Where the system does not know it, the frame stays as it is.
    if (const auto setAttribute = FindFunction<SetAttribute>(
            ::LoadLibraryExW(L"dwmapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32),
            "DwmSetWindowAttribute"))
    {
        setAttribute(window, kDarkFrame, &dark, sizeof(dark));
    }
}
} // namespace velt
