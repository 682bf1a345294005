#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"
#include "ui/resources/resource_ids.h"

#include <catch.hpp>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
/// What a part of a window shows on the screen: rows of pixels as 0x00RRGGBB.
std::vector<std::uint32_t> PixelsOf(HWND window, const RECT& part)
{
    const int width = part.right - part.left;
    const int height = part.bottom - part.top;
    const HDC source = ::GetDC(window);
    const HDC memory = ::CreateCompatibleDC(source);
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    void* bits = nullptr;
    const HBITMAP bitmap = ::CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    REQUIRE(bitmap);
    const HGDIOBJ old = ::SelectObject(memory, bitmap);
    ::BitBlt(memory, 0, 0, width, height, source, part.left, part.top, SRCCOPY);
    ::GdiFlush();
    const auto* const first = static_cast<const std::uint32_t*>(bits);
    std::vector<std::uint32_t> pixels(first, first + width * height);
    for (std::uint32_t& pixel : pixels)
    {
        pixel &= 0xFFFFFF;
    }
    ::SelectObject(memory, old);
    ::DeleteObject(bitmap);
    ::DeleteDC(memory);
    ::ReleaseDC(window, source);
    return pixels;
}

bool IsDark(std::uint32_t pixel)
{
    return (pixel & 0xFF) < 0x60 && (pixel >> 8 & 0xFF) < 0x60 && (pixel >> 16) < 0x60;
}

/// How far to the right the caption reaches, in pixels of the dialog; 0 without one.
int CaptionEnd(HWND dialog)
{
    RECT client{};
    ::GetClientRect(dialog, &client);
    const RECT band{16, 10, client.right - 4, 32};
    const int width = band.right - band.left;
    const std::vector<std::uint32_t> pixels = PixelsOf(dialog, band);
    int end = 0;
    for (std::size_t i = 0; i < pixels.size(); ++i)
    {
        if (IsDark(pixels[i]))
        {
            end = std::max(end, static_cast<int>(i) % width + 16);
        }
    }
    return end;
}

std::string TitleXml(const std::string& title)
{
    return "<T><RECORD><K>enu_user_license_agreement</K><V>" + title + "</V></RECORD></T>";
}

struct Painted
{
    explicit Painted(const std::string& title = {})
        : session(library, Agreement(),
                  title.empty()
                      ? std::wstring()
                      : (folder.Write(L"texts.xml", TitleXml(title)), folder.File(L"texts.xml")))
    {
        session.Activate();
        ::RedrawWindow(session.Dialog(), nullptr, nullptr,
                       RDW_INVALIDATE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    }

    std::wstring Agreement() const
    {
        folder.Write(L"agreement.rtf", kSmallAgreement);
        return folder.File(L"agreement.rtf");
    }

    const TempFolder folder;
    const ComponentLibrary library;
    EulaSession session;
};
} // namespace

TEST_CASE("CEulaDialog: the texts file's title is drawn as the caption", "[ui]")
{
    int ends[4] = {};
    const std::string titles[] = {"I", "", "MMMMMMMMMMMMMMMMMMMMMMMMMMMMMMMMMMM",
                                  std::string(10'000, 'M')};
    for (std::size_t i = 0; i < 4; ++i)
    {
        Painted painted(titles[i]); // "" leaves the English one
        ends[i] = CaptionEnd(painted.session.Dialog());
    }
    CHECK(ends[0] > 16);
    CHECK(ends[1] > ends[0] + 60);
    CHECK(ends[2] > ends[1] + 60);
    CHECK(ends[3] >= ends[2]); // it ends where the caption's place does
}

TEST_CASE("CEulaDialog: what was covered is as before when it is uncovered", "[ui]")
{
    Painted painted;
    const HWND dialog = painted.session.Dialog();
    ::SendMessageW(painted.session.Item(VELT_EULA_VIEW), WM_KILLFOCUS, 0, 0);
    RECT client{};
    ::GetClientRect(dialog, &client);
    const std::vector<std::uint32_t> before = PixelsOf(dialog, client);
    CHECK(std::count(before.begin(), before.end(), 0xEDEDEDu) > 1000); // the surface

    RECT place{};
    ::GetWindowRect(dialog, &place);
    const HWND cover =
        ::CreateWindowExW(WS_EX_TOPMOST | WS_EX_NOACTIVATE, L"STATIC", L"", WS_POPUP | WS_VISIBLE,
                          place.left + 50, place.top, 300, 300, nullptr, nullptr, nullptr, nullptr);
    ::UpdateWindow(cover);
    ::DestroyWindow(cover);
    CHECK(WaitUntil([&] { return PixelsOf(dialog, client) == before; }));
}

TEST_CASE("CEulaDialog: labels and the view lie on the surface's colour without seams", "[ui]")
{
    Painted painted;
    const HWND dialog = painted.session.Dialog();
    for (const int id : {VELT_EULA_DECLINE, VELT_EULA_ACCEPT, VELT_EULA_OK})
    {
        CAPTURE(id);
        const RECT item = PlaceInParent(painted.session.Item(id));
        // Around the control and in its own right end nothing but the surface is seen.
        const std::vector<std::uint32_t> above =
            PixelsOf(dialog, {item.left, item.top - 1, item.right, item.top});
        CHECK(std::count(above.begin(), above.end(), 0xEDEDEDu) ==
              static_cast<std::ptrdiff_t>(above.size()));
        if (id != VELT_EULA_OK)
        {
            const std::vector<std::uint32_t> end =
                PixelsOf(dialog, {item.right - 20, item.top, item.right, item.bottom});
            CHECK(std::count(end.begin(), end.end(), 0xEDEDEDu) ==
                  static_cast<std::ptrdiff_t>(end.size()));
        }
    }
}

TEST_CASE("CEulaDialog: its outline is that of the skin", "[ui]")
{
    Painted painted;
    const HWND dialog = painted.session.Dialog();
    RECT client{};
    ::GetClientRect(dialog, &client);
    const HRGN region = ::CreateRectRgn(0, 0, 0, 0);
    REQUIRE(::GetWindowRgn(dialog, region) == COMPLEXREGION);
    CHECK_FALSE(::PtInRegion(region, 0, 0));
    CHECK_FALSE(::PtInRegion(region, client.right - 1, client.bottom - 1));
    CHECK(::PtInRegion(region, 20, 0));
    CHECK(::PtInRegion(region, 0, client.bottom / 2));
    RECT box{};
    ::GetRgnBox(region, &box);
    CHECK(::EqualRect(&box, &client));
    ::DeleteObject(region);
}
