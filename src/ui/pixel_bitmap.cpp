#include "ui/pixel_bitmap.h"

namespace velt
{
UniqueBitmap MakePixelBitmap(Size size) noexcept
{
    if (size.width <= 0 || size.height <= 0)
    {
        return {};
    }
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = size.width;
    info.bmiHeader.biHeight = size.height; // positive: the bottom row comes first
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    return UniqueBitmap(::CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0));
}

std::span<const std::uint32_t> PixelsOf(HBITMAP bitmap, Size size) noexcept
{
    DIBSECTION section{};
    const BITMAPINFOHEADER& header = section.dsBmih;
    if (::GetObjectW(bitmap, sizeof(section), &section) != sizeof(section) ||
        header.biBitCount != 32 || header.biCompression != BI_RGB || header.biWidth != size.width ||
        header.biHeight != size.height || size.width <= 0 || size.height <= 0)
    {
        return {};
    }
    ::GdiFlush(); // the pixels are read without GDI
    return {static_cast<const std::uint32_t*>(section.dsBm.bmBits),
            static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height)};
}
} // namespace velt
