#pragma once

#include "ui/drawing_scopes.h"
#include "ui/gdi_handles.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace velt::test
{
/// A picture of 32 bits a pixel that the test draws on and reads.
class Pixels
{
public:
    /// All pixels are of one colour at first.
    Pixels(int width, int height, COLORREF colour = RGB(0, 0, 0))
        : m_width(width),
          m_height(height),
          m_context(::CreateCompatibleDC(nullptr))
    {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = width;
        info.bmiHeader.biHeight = -height;
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        m_bitmap.Reset(::CreateDIBSection(m_context.Get(), &info, DIB_RGB_COLORS,
                                          reinterpret_cast<void**>(&m_bits), nullptr, 0));
        if (!m_bitmap)
        {
            throw std::runtime_error("no picture");
        }
        ::SelectObject(m_context.Get(), m_bitmap.Get());
        const UniqueBrush brush(::CreateSolidBrush(colour));
        const RECT all{0, 0, width, height};
        ::FillRect(m_context.Get(), &all, brush.Get());
    }

    /// What a window shows.
    static Pixels Of(HWND window)
    {
        RECT client{};
        ::GetClientRect(window, &client);
        Pixels pixels(client.right, client.bottom);
        const WindowDc context(window);
        ::BitBlt(pixels.Context(), 0, 0, client.right, client.bottom, context.Get(), 0, 0, SRCCOPY);
        pixels.Flush();
        return pixels;
    }

    /// A bitmap resource of a module, or of this program.
    static Pixels OfResource(UINT id, HMODULE module = nullptr)
    {
        const UniqueBitmap bitmap(
            ::LoadBitmapW(module ? module : ::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id)));
        BITMAP info{};
        ::GetObjectW(bitmap.Get(), sizeof(info), &info);
        Pixels pixels(info.bmWidth, info.bmHeight);
        const UniqueMemoryDc context(::CreateCompatibleDC(nullptr));
        const SelectScope selected(context.Get(), bitmap.Get());
        ::BitBlt(pixels.Context(), 0, 0, info.bmWidth, info.bmHeight, context.Get(), 0, 0, SRCCOPY);
        pixels.Flush();
        return pixels;
    }

    HDC Context() const
    {
        return m_context.Get();
    }

    int Width() const
    {
        return m_width;
    }

    int Height() const
    {
        return m_height;
    }

    /// Everything that was drawn is there to be read.
    void Flush() const
    {
        ::GdiFlush();
    }

    COLORREF At(int x, int y) const
    {
        if (x < 0 || y < 0 || x >= m_width || y >= m_height)
        {
            throw std::out_of_range("pixel");
        }
        const std::uint32_t pixel = m_bits[y * m_width + x];
        return RGB(pixel >> 16 & 0xFF, pixel >> 8 & 0xFF, pixel & 0xFF);
    }

    /// How many pixels of a rectangle have the colour.
    int Count(COLORREF colour, const RECT& area) const
    {
        Flush();
        int count = 0;
        for (int y = area.top; y < area.bottom; ++y)
        {
            for (int x = area.left; x < area.right; ++x)
            {
                count += At(x, y) == colour ? 1 : 0;
            }
        }
        return count;
    }

    int Count(COLORREF colour) const
    {
        return Count(colour, {0, 0, m_width, m_height});
    }

    bool operator==(const Pixels& other) const
    {
        Flush();
        constexpr std::uint32_t kColour = 0xFFFFFF;
        return m_width == other.m_width && m_height == other.m_height &&
               std::equal(
                   m_bits, m_bits + m_width * m_height, other.m_bits,
                   [](std::uint32_t a, std::uint32_t b) { return (a & kColour) == (b & kColour); });
    }

private:
    int m_width;
    int m_height;
    std::uint32_t* m_bits = nullptr;
    UniqueBitmap m_bitmap;
    UniqueMemoryDc m_context; // closed first: the bitmap is selected into it
};
} // namespace velt::test
