#include "tests/support/import_patch.h"
#include "tests/ui/button_scene.h"

#include <catch.hpp>

#include <string>

using namespace velt;
using namespace velt::test;

namespace
{
constexpr COLORREF kDisabled = RGB(180, 180, 180);
} // namespace

TEST_CASE("CHaldenStyleButton: faces are drawn in three slices over black ground", "[ui]")
{
    ButtonScene scene;
    scene.Show([&] {
        CHECK(Pixels::Of(scene.window) == ExpectedFace(TEST_FACE_NORMAL));
        scene.Send(WM_MOUSEMOVE, 0, kInside);
        CHECK(Pixels::Of(scene.window) == ExpectedFace(TEST_FACE_HOT));
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        CHECK(Pixels::Of(scene.window) == ExpectedFace(TEST_FACE_PRESSED));
        ::ReleaseCapture();
    });
}

TEST_CASE("CHaldenStyleButton: WM_PRINTCLIENT draws the same into a context", "[ui]")
{
    ButtonScene scene(L"OK");
    scene.Show([&] {
        const Pixels target(80, 30, RGB(9, 9, 9));
        CHECK(scene.Send(WM_PRINTCLIENT, reinterpret_cast<WPARAM>(target.Context()), PRF_CLIENT) ==
              0);
        CHECK(target == Pixels::Of(scene.window));
        CHECK(target.Count(kBlack) > 30);
    });
}

TEST_CASE("CHaldenStyleButton: black of the face is transparent", "[ui]")
{
    // A new bitmap, whose content the transparent pixels show, is filled by the test.
    using BitmapPatch = ImportPatch<"CreateCompatibleBitmap", decltype(::CreateCompatibleBitmap)>;
    ButtonScene scene;
    scene.Show([&] {
        const BitmapPatch patch("gdi32.dll", [](HDC context, int width, int height) {
            const HBITMAP bitmap = BitmapPatch::Original(context, width, height);
            const UniqueMemoryDc memory(::CreateCompatibleDC(context));
            const SelectScope selected(memory.Get(), bitmap);
            const RECT all{0, 0, width, height};
            ::FillRect(memory.Get(), &all, static_cast<HBRUSH>(::GetStockObject(WHITE_BRUSH)));
            return bitmap;
        });
        ::InvalidateRect(scene.window, nullptr, TRUE);
        ::UpdateWindow(scene.window);
        const Pixels shown = Pixels::Of(scene.window);
        const Pixels opaque = ExpectedFace(TEST_FACE_NORMAL);
        int wrong = 0;
        for (int y = 0; y < 30; ++y)
        {
            for (int x = 0; x < 80; ++x)
            {
                const COLORREF face = opaque.At(x, y);
                wrong += shown.At(x, y) == (face == kBlack ? RGB(255, 255, 255) : face) ? 0 : 1;
            }
        }
        CHECK(wrong == 0);
        CHECK(shown.Count(RGB(255, 255, 255)) == opaque.Count(kBlack));
        CHECK(opaque.Count(kBlack) > 0);
    });
}

TEST_CASE("CHaldenStyleButton: the parent is asked for its brush, with the button", "[ui]")
{
    ButtonScene scene;
    scene.Show([&] {
        const Pixels target(80, 30);
        scene.Send(WM_PRINTCLIENT, reinterpret_cast<WPARAM>(target.Context()), PRF_CLIENT);
        const auto asked = scene.dialog.Got(WM_CTLCOLORSTATIC);
        REQUIRE(asked.size() == 1);
        CHECK(asked[0].wParam == reinterpret_cast<WPARAM>(target.Context()));
        CHECK(asked[0].lParam == reinterpret_cast<LPARAM>(scene.window));
    });
}

TEST_CASE("CHaldenStyleButton: text is black, and grey when it is disabled", "[ui]")
{
    ButtonScene scene(L"HHHH");
    scene.Show([&] {
        const RECT middle{10, 5, 70, 25};
        const int ground = ExpectedFace(TEST_FACE_NORMAL).Count(kBlack, middle);
        CHECK(Pixels::Of(scene.window).Count(kBlack, middle) > ground + 40);
        ::EnableWindow(scene.window, FALSE);
        ::UpdateWindow(scene.window);
        const Pixels disabled = Pixels::Of(scene.window);
        CHECK(disabled.Count(kDisabled, middle) > 40);
        ::EnableWindow(scene.window, TRUE);
        ::SetWindowTextW(scene.window, L"");
        ::UpdateWindow(scene.window);
        CHECK(Pixels::Of(scene.window) == ExpectedFace(TEST_FACE_NORMAL));
    });
}

TEST_CASE("Repainting: the whole button, its ground erased", "[ui]")
{
    ButtonScene scene;
    scene.Show([&] {
        using InvalidatePatch = ImportPatch<"InvalidateRect", decltype(::InvalidateRect)>;
        bool isWhole = false;
        const InvalidatePatch patch("user32.dll", [&](HWND window, const RECT* area, BOOL erase) {
            isWhole = window == scene.window && !area && erase == TRUE;
            return InvalidatePatch::Original(window, area, erase);
        });
        scene.Send(WM_SETFOCUS);
        CHECK(isWhole);
        CHECK(::GetUpdateRect(scene.window, nullptr, FALSE) == FALSE); // and at once
    });
}

TEST_CASE("High contrast: the button is the system's, in the system's colours", "[ui]")
{
    using SettingPatch = ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)>;
    ButtonScene scene(L"HHHH");
    scene.Show([&] {
        const SettingPatch on("user32.dll", [](UINT, UINT, void* value, UINT) {
            static_cast<HIGHCONTRASTW*>(value)->dwFlags = HCF_HIGHCONTRASTON;
            return TRUE;
        });
        const auto draw = [&] {
            ::InvalidateRect(scene.window, nullptr, TRUE);
            ::UpdateWindow(scene.window);
            return Pixels::Of(scene.window);
        };
        const Pixels normal = draw();
        CHECK(normal.At(8, 8) == ::GetSysColor(COLOR_BTNFACE));
        CHECK(normal.Count(::GetSysColor(COLOR_BTNTEXT), {10, 5, 70, 25}) > 40);
        ::SetFocus(scene.window);
        CHECK_FALSE(draw() == normal);
        ::SetFocus(scene.dialog.Child(TEST_CHILD_EDIT));
        scene.Send(WM_LBUTTONDBLCLK, MK_LBUTTON, kInside);
        CHECK_FALSE(draw() == normal);
        scene.Send(WM_CAPTURECHANGED);
        ::EnableWindow(scene.window, FALSE);
        CHECK(draw().Count(::GetSysColor(COLOR_GRAYTEXT), {10, 5, 70, 25}) > 40);
    });
}

TEST_CASE("Faces: each is loaded once", "[ui]")
{
    using LoadPatch = ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)>;
    ButtonScene scene;
    const LoadPatch load("user32.dll", [](HINSTANCE module, const wchar_t* name) {
        return LoadPatch::Original(module, name);
    });
    scene.Show([&] {
        CHECK(load.Calls() == 1);
        scene.Send(WM_SETFOCUS);
        scene.Send(WM_KILLFOCUS);
        scene.Send(WM_SETFOCUS);
        CHECK(load.Calls() == 2);
    });
}

TEST_CASE("Faces: one that a context refuses is loaded again the next time", "[ui]")
{
    ButtonScene scene;
    scene.Show([&] {
        const Pixels target(80, 30);
        const auto draw = [&] {
            scene.Send(WM_PRINTCLIENT, reinterpret_cast<WPARAM>(target.Context()), PRF_CLIENT);
        };
        {
            using SelectPatch = ImportPatch<"SelectObject", decltype(::SelectObject)>;
            const SelectPatch refusing("gdi32.dll", [](HDC context, HGDIOBJ object) {
                BITMAP info{};
                const bool isFace = ::GetObjectType(object) == OBJ_BITMAP &&
                                    ::GetObjectW(object, sizeof(info), &info) != 0 &&
                                    info.bmHeight == 12;
                return isFace ? nullptr : SelectPatch::Original(context, object);
            });
            scene.Send(WM_MOUSEMOVE, 0, MAKELPARAM(40, 15));
            draw();
            CHECK(target.At(5, 0) == kBlack);
        }
        draw();
        target.Flush();
        CHECK(target == ExpectedFace(TEST_FACE_HOT));
    });
}

TEST_CASE("Faces: what they are drawn on first makes no difference", "[ui]")
{
    // Contexts that were made for the target could not take the bitmaps of the screen.
    using ContextPatch = ImportPatch<"CreateCompatibleDC", decltype(::CreateCompatibleDC)>;
    ButtonScene scene;
    scene.Show([&] {
        const Pixels target(80, 30);
        int forTarget = 0;
        int forScreen = 0;
        scene.Send(WM_SETREDRAW, FALSE); // or the pressed face would be painted at once
        scene.Send(WM_LBUTTONDBLCLK, MK_LBUTTON, MAKELPARAM(3, 4));
        const ContextPatch patch("gdi32.dll", [&](HDC context) {
            forTarget += context == target.Context() ? 1 : 0;
            forScreen += context ? 0 : 1;
            return ContextPatch::Original(context);
        });
        scene.Send(WM_PRINTCLIENT, reinterpret_cast<WPARAM>(target.Context()), PRF_CLIENT);
        CHECK(forTarget == 1); // for the picture of the button
        CHECK(forScreen == 2); // for the face and its mask
    });
}

TEST_CASE("Painting: without memory for its picture a button shows the parent's brush", "[ui]")
{
    ButtonScene scene(L"OK");
    scene.Show([&] {
        const Pixels target(80, 30, RGB(1, 2, 3));
        const ImportPatch<"CreateCompatibleBitmap", decltype(::CreateCompatibleBitmap)> none(
            "gdi32.dll", [](HDC, int, int) { return static_cast<HBITMAP>(nullptr); });
        scene.Send(WM_PRINTCLIENT, reinterpret_cast<WPARAM>(target.Context()), PRF_CLIENT);
        CHECK(none.Calls() == 1);
        CHECK(target.Count(RGB(237, 237, 237)) == 80 * 30);
    });
}
