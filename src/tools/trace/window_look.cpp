#include "tools/trace/window_look.h"

#include "foundation/find_function.h"

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
} // namespace

WindowLook::WindowLook(int dpi) : m_dpi(dpi)
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
    m_fixedFont.Reset(::CreateFontIndirectW(&font));
}

int WindowLook::DpiOf(HWND window) noexcept
{
    const auto dpiForWindow = FindFunction<UINT(WINAPI*)(HWND)>(
        ::GetModuleHandleW(L"user32.dll"), "GetDpiForWindow"); // since Windows 10
    const UINT dpi = dpiForWindow ? dpiForWindow(window) : 0;
    return dpi != 0 ? static_cast<int>(dpi) : SystemDpi();
}
} // namespace velt
