#include "tests/support/gui_usage.h"
#include "tests/ui/frame_scene.h"

#include <catch.hpp>

using namespace velt;
using namespace velt::test;

TEST_CASE("WM_SIZE: the skin is composed for any size, corners as they are, edges stretched",
          "[ui]")
{
    const auto [width, height] = GENERATE(table<int, int>({{60, 40},
                                                           {200, 150},
                                                           {61, 41},
                                                           {300, 40},
                                                           {60, 180},
                                                           {22, 15},
                                                           {21, 14},
                                                           {19, 9},
                                                           {5, 5}}));
    TestDialog dialog(TEST_DIALOG_BARE);
    dialog.Show([&, width = width, height = height] {
        dialog.Resize(width, height);
        RECT client{};
        ::GetClientRect(dialog.Window(), &client);
        REQUIRE(client.right == width);
        CHECK(WrongPixels(dialog, ExpectedSkin(TEST_SKIN, width, height)) == 0);
    });
}

TEST_CASE("WM_SIZE: the size is that of the message; the window is painted at once", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BARE);
    dialog.Show([&] {
        dialog.Resize(100, 80);
        ::ValidateRect(dialog.Window(), nullptr);
        dialog.Forget();
        CHECK(::SendMessageW(dialog.Window(), WM_SIZE, SIZE_RESTORED, MAKELPARAM(90, 70)) == 0);
        CHECK(dialog.Got(WM_PAINT).size() == 1);
        CHECK(::GetUpdateRect(dialog.Window(), nullptr, FALSE) == FALSE);
        RECT box{};
        ::GetRgnBox(Outline(dialog.Window()).region.Get(), &box);
        CHECK(box.right == 90);
        CHECK(box.bottom == 70);
    });
}

TEST_CASE("WM_PAINT: the first one composes the skin when no WM_SIZE did", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BARE);
    dialog.Show([&] {
        RECT client{};
        ::GetClientRect(dialog.Window(), &client);
        ::UpdateWindow(dialog.Window());
        CHECK(WrongPixels(dialog, ExpectedSkin(TEST_SKIN, client.right, client.bottom)) == 0);
    });
}

TEST_CASE("Region: a skin of pure red alone is an empty one, one without red a whole rectangle",
          "[ui]")
{
    const auto [skin, type] = GENERATE(
        table<UINT, int>({{TEST_SKIN_ALL_RED, NULLREGION}, {TEST_SKIN_NO_RED, SIMPLEREGION}}));
    // Of one size, because corners of different sizes leave gaps between the bands.
    TestDialog dialog(TEST_DIALOG_BARE, skin, true, {{9, 9}, {9, 9}, {9, 9}, {9, 9}});
    dialog.Show([&, type = type] {
        dialog.Resize(100, 80);
        const Outline outline(dialog.Window());
        CHECK(outline.type == type);
        RECT box{};
        ::GetRgnBox(outline.region.Get(), &box);
        CHECK(box.right == (type == NULLREGION ? 0 : 100));
        CHECK(box.bottom == (type == NULLREGION ? 0 : 80));
    });
}

TEST_CASE("Region: one that cannot be built leaves the window without", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BARE);
    dialog.Show([&] {
        dialog.Resize(100, 80);
        CHECK(Outline(dialog.Window()).type == COMPLEXREGION);
        const ImportPatch<"CreateDIBSection", decltype(::CreateDIBSection)> failing(
            "gdi32.dll", [](HDC, const BITMAPINFO*, UINT, void**, HANDLE, DWORD) {
                return static_cast<HBITMAP>(nullptr);
            });
        dialog.Resize(90, 70);
        CHECK(failing.Calls() > 0);
        CHECK(Outline(dialog.Window()).type == ERROR);
    });
}

TEST_CASE("WM_PAINT: a failure is caught, and painting has ended", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BARE);
    dialog.Show([&] {
        const ImportPatch<"CreateCompatibleDC", decltype(::CreateCompatibleDC)> failing(
            "gdi32.dll", [](HDC) { return static_cast<HDC>(nullptr); });
        dialog.Resize(90, 70);
        ::InvalidateRect(dialog.Window(), nullptr, TRUE);
        ::UpdateWindow(dialog.Window());
        CHECK(failing.Calls() > 0);
        CHECK(::GetUpdateRect(dialog.Window(), nullptr, FALSE) == FALSE);
    });
}

TEST_CASE("WM_PAINT: child 201 is never painted over, the rest is", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BROWSER);
    dialog.Show([&] {
        ::UpdateWindow(dialog.Window());
        RECT client{};
        ::GetClientRect(dialog.Window(), &client);
        const RECT child = ChildRect(dialog, TEST_CHILD_BROWSER);
        {
            const WindowDc context(dialog.Window());
            ::FillRect(context.Get(), &client, static_cast<HBRUSH>(::GetStockObject(BLACK_BRUSH)));
        }
        PaintAlone(dialog);
        const Pixels shown = Pixels::Of(dialog.Window());
        const Pixels skin = ExpectedSkin(TEST_SKIN, client.right, client.bottom);
        CHECK(shown.Count(RGB(0, 0, 0), child) ==
              (child.right - child.left) * (child.bottom - child.top));
        for (const RECT& side : {RECT{child.left, child.top - 1, child.right, child.top},
                                 RECT{child.left - 1, child.top, child.left, child.bottom},
                                 RECT{child.right, child.top, child.right + 1, child.bottom},
                                 RECT{child.left, child.bottom, child.right, child.bottom + 1}})
        {
            CHECK(shown.Count(RGB(0, 0, 0), side) == 0);
        }
        CHECK(shown.At(20, 3) == skin.At(20, 3));
        CHECK(shown.At(client.right - 20, client.bottom - 3) ==
              skin.At(client.right - 20, client.bottom - 3));
    });
}

TEST_CASE("WM_PAINT: a dialog that is not skinned paints nothing and has no region", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BARE, TEST_SKIN, false);
    dialog.Show([&] {
        dialog.Resize(100, 80);
        const RECT client{0, 0, 100, 80};
        {
            const WindowDc context(dialog.Window());
            ::FillRect(context.Get(), &client, static_cast<HBRUSH>(::GetStockObject(BLACK_BRUSH)));
        }
        ::InvalidateRect(dialog.Window(), nullptr, FALSE);
        ::UpdateWindow(dialog.Window());
        CHECK(::GetUpdateRect(dialog.Window(), nullptr, FALSE) == FALSE);
        CHECK(Pixels::Of(dialog.Window()).Count(RGB(0, 0, 0)) == 100 * 80);
        CHECK(Outline(dialog.Window()).type == ERROR);
    });
}

TEST_CASE("WM_SIZE: without contexts and memory the dialog goes on, unskinned until there are",
          "[ui]")
{
    TestDialog dialog(TEST_DIALOG_BARE);
    CHECK(dialog.Show([&] {
        {
            const ImportPatch<"GetDC", decltype(::GetDC)> noContext(
                "user32.dll", [](HWND) { return static_cast<HDC>(nullptr); });
            const ImportPatch<"CreateDIBSection", decltype(::CreateDIBSection)> noMemory(
                "gdi32.dll", [](HDC, const BITMAPINFO*, UINT, void**, HANDLE, DWORD) {
                    return static_cast<HBITMAP>(nullptr);
                });
            dialog.Resize(90, 70);
            CHECK(::IsWindow(dialog.Window()));
            CHECK_FALSE(dialog.HasEnded());
            CHECK(Outline(dialog.Window()).type == ERROR);
        }
        PaintAlone(dialog);
        CHECK(WrongPixels(dialog, ExpectedSkin(TEST_SKIN, 90, 70)) == 0);
    }) == 7);
}

TEST_CASE("WM_SIZE: a copy that fails leaves the other parts of the skin to be drawn", "[ui]")
{
    const LONG failing = GENERATE(1, 3, 5);
    using StretchPatch = ImportPatch<"StretchBlt", decltype(::StretchBlt)>;
    TestDialog dialog(TEST_DIALOG_BARE);
    dialog.Show([&] {
        RECT left{};
        {
            const StretchPatch stretch(
                "gdi32.dll", [&](HDC target, int x, int y, int width, int height, HDC source,
                                 int fromX, int fromY, int fromWidth, int fromHeight, DWORD how) {
                    if (stretch.Calls() == failing)
                    {
                        left = {x, y, x + width, y + height};
                        return FALSE;
                    }
                    return StretchPatch::Original(target, x, y, width, height, source, fromX, fromY,
                                                  fromWidth, fromHeight, how);
                });
            dialog.Resize(200, 150);
            CHECK(stretch.Calls() == 5); // the corners keep their size
        }
        const Pixels shown = Pixels::Of(dialog.Window());
        CHECK(shown.Count(RGB(0, 0, 0), left) ==
              (left.right - left.left) * (left.bottom - left.top));
        CHECK(WrongPixels(dialog.Window(), ExpectedSkin(TEST_SKIN, 200, 150), {left}) == 0);
    });
}

TEST_CASE("WM_SIZE: an outline that the window does not take is given back", "[ui]")
{
    using RegionPatch = ImportPatch<"SetWindowRgn", decltype(::SetWindowRgn)>;
    TestDialog dialog(TEST_DIALOG_BARE, TEST_SKIN, true);
    dialog.Show([&] {
        const RegionPatch region("user32.dll", [](HWND, HRGN, BOOL) { return 0; });
        const auto size = [&] {
            ::SendMessageW(dialog.Window(), WM_SIZE, SIZE_RESTORED, MAKELPARAM(100, 80));
        };
        size();
        const std::size_t before = CurrentGuiUsage().gdiObjects;
        for (int i = 0; i < 20; ++i)
        {
            size();
        }
        CHECK(region.Calls() > 20);
        CHECK(CurrentGuiUsage().gdiObjects <= before);
    });
}

TEST_CASE("WM_SIZE: the outline is given without painting; the ground is erased", "[ui]")
{
    using RegionPatch = ImportPatch<"SetWindowRgn", decltype(::SetWindowRgn)>;
    const bool isSkinned = GENERATE(true, false);
    TestDialog dialog(TEST_DIALOG_BARE, TEST_SKIN, isSkinned);
    dialog.Show([&] {
        BOOL redraw = 2;
        const RegionPatch region("user32.dll", [&](HWND window, HRGN given, BOOL isRedrawn) {
            redraw = isRedrawn;
            return RegionPatch::Original(window, given, isRedrawn);
        });
        dialog.Resize(100, 80);
        ::ValidateRect(dialog.Window(), nullptr);
        dialog.Forget();
        ::SendMessageW(dialog.Window(), WM_SIZE, SIZE_RESTORED, MAKELPARAM(100, 80));
        CHECK(redraw == (isSkinned ? FALSE : 2));
        CHECK(dialog.Got(WM_ERASEBKGND).size() == 1);
        CHECK(dialog.Got(WM_PAINT).size() == 1);
    });
}
