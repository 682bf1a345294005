#include "tests/tools/trace/screen_picture.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>

namespace velt::test
{
namespace
{
constexpr int kStandsOut = 40; // of lightness

/// `isInk(i)` for i below `length`, as spans.
template <class Function>
std::vector<InkSpan> SpansOf(int length, int gap, const Function& isInk)
{
    std::vector<InkSpan> spans;
    for (int i = 0; i < length; ++i)
    {
        if (!isInk(i))
        {
            continue;
        }
        if (!spans.empty() && i - spans.back().to <= gap)
        {
            spans.back().to = i + 1;
        }
        else
        {
            spans.push_back({i, i + 1});
        }
    }
    return spans;
}
} // namespace

int LightnessAt(const POINT& place)
{
    const HDC screen = ::GetDC(nullptr);
    const COLORREF color = ::GetPixel(screen, static_cast<int>(place.x), static_cast<int>(place.y));
    ::ReleaseDC(nullptr, screen);
    return (GetRValue(color) + GetGValue(color) + GetBValue(color)) / 3;
}

int LightnessAt(HWND window, int x, int y)
{
    POINT place{x, y};
    ::ClientToScreen(window, &place);
    return LightnessAt(place);
}

int LightnessOfMenu(HWND window, bool first)
{
    RECT client{};
    ::GetClientRect(window, &client);
    return LightnessAt(window, first ? 3 : static_cast<int>(client.right) - 20, -4);
}

ScreenPicture::ScreenPicture(const RECT& place)
    : m_width(static_cast<int>(place.right - place.left)),
      m_height(static_cast<int>(place.bottom - place.top))
{
    if (m_width <= 0 || m_height <= 0)
    {
        m_width = m_height = 0;
        return;
    }
    BITMAPINFO format{};
    format.bmiHeader.biSize = sizeof(format.bmiHeader);
    format.bmiHeader.biWidth = m_width;
    format.bmiHeader.biHeight = -m_height; // from the top
    format.bmiHeader.biPlanes = 1;
    format.bmiHeader.biBitCount = 32;
    const HDC screen = ::GetDC(nullptr);
    const HDC memory = ::CreateCompatibleDC(screen);
    void* bits = nullptr;
    const HBITMAP bitmap = ::CreateDIBSection(screen, &format, DIB_RGB_COLORS, &bits, nullptr, 0);
    const HGDIOBJ former = ::SelectObject(memory, bitmap);
    const bool taken =
        bits && ::BitBlt(memory, 0, 0, m_width, m_height, screen, static_cast<int>(place.left),
                         static_cast<int>(place.top), SRCCOPY) != FALSE;
    ::GdiFlush();
    std::array<int, 256> counts{};
    if (taken)
    {
        const auto* const pixels = static_cast<const RGBQUAD*>(bits);
        for (int i = 0; i < m_width * m_height; ++i)
        {
            const RGBQUAD& pixel = pixels[i];
            const int lightness = (pixel.rgbRed + pixel.rgbGreen + pixel.rgbBlue) / 3;
            m_lightness.push_back(static_cast<unsigned char>(lightness));
            ++counts[static_cast<std::size_t>(lightness)];
        }
    }
    ::SelectObject(memory, former);
    ::DeleteObject(bitmap);
    ::DeleteDC(memory);
    ::ReleaseDC(nullptr, screen);
    if (!taken)
    {
        throw std::runtime_error("the screen cannot be read");
    }
    m_ground = static_cast<int>(std::max_element(counts.begin(), counts.end()) - counts.begin());
}

int ScreenPicture::LightnessAt(int x, int y) const
{
    return m_lightness.at(static_cast<std::size_t>(y * m_width + x));
}

std::vector<InkSpan> ScreenPicture::Columns(int gap) const
{
    return Columns(gap, {0, m_height});
}

std::vector<InkSpan> ScreenPicture::Columns(int gap, const InkSpan& rows) const
{
    return SpansOf(m_width, gap, [&](int x) {
        for (int y = rows.from; y < rows.to; ++y)
        {
            if (StandsOut(x, y))
            {
                return true;
            }
        }
        return false;
    });
}

std::vector<InkSpan> ScreenPicture::Rows(int gap) const
{
    return SpansOf(m_height, gap, [this](int y) {
        for (int x = 0; x < m_width; ++x)
        {
            if (StandsOut(x, y))
            {
                return true;
            }
        }
        return false;
    });
}

bool ScreenPicture::StandsOut(int x, int y) const
{
    return std::abs(LightnessAt(x, y) - m_ground) > kStandsOut;
}
} // namespace velt::test
