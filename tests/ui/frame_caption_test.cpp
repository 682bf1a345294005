#include "tests/ui/frame_scene.h"

#include <catch.hpp>

#include <cstddef>
#include <string>
#include <vector>

using namespace velt;
using namespace velt::test;

TEST_CASE("Caption: drawn in the text colour where child 1006 is, which stays hidden", "[ui]")
{
    const auto [isSet, colour] =
        GENERATE(table<bool, COLORREF>({{false, RGB(255, 255, 255)}, {true, RGB(0, 0, 1)}}));
    TestDialog dialog(TEST_DIALOG);
    if (isSet)
    {
        dialog.SetTextColour(colour);
    }
    dialog.Show([&, colour = colour] {
        ::UpdateWindow(dialog.Window());
        const RECT area = ChildRect(dialog, TEST_CHILD_CAPTION);
        const Pixels shown = Pixels::Of(dialog.Window());
        const int inside = shown.Count(colour, area);
        CHECK(inside > 20);
        CHECK(shown.Count(colour, {0, 0, shown.Width(), area.bottom}) == inside);
        CHECK_FALSE(::IsWindowVisible(dialog.Child(TEST_CHILD_CAPTION)));
        PaintAlone(dialog); // drawn over itself, smooth text would grow
        CHECK(Pixels::Of(dialog.Window()).Count(colour, area) == inside);
    });
}

TEST_CASE("Caption: another colour, and another place of child 1006, show with the next painting",
          "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        ::UpdateWindow(dialog.Window());
        const RECT area = ChildRect(dialog, TEST_CHILD_CAPTION);
        dialog.SetTextColour(RGB(0, 0, 1));
        PaintAlone(dialog);
        const Pixels coloured = Pixels::Of(dialog.Window());
        CHECK(coloured.Count(RGB(255, 255, 255), area) == 0);
        CHECK(coloured.Count(RGB(0, 0, 1), area) > 20);

        ::SetWindowPos(dialog.Child(TEST_CHILD_CAPTION), nullptr, area.left, area.top + 100, 0, 0,
                       SWP_NOSIZE | SWP_NOZORDER);
        PaintAlone(dialog);
        const Pixels moved = Pixels::Of(dialog.Window());
        CHECK(moved.Count(RGB(0, 0, 1), area) == 0);
        CHECK(moved.Count(RGB(0, 0, 1), ChildRect(dialog, TEST_CHILD_CAPTION)) > 20);
    });
}

TEST_CASE("Caption: a painting that fails does not lose it", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        ::UpdateWindow(dialog.Window());
        const RECT area = ChildRect(dialog, TEST_CHILD_CAPTION);
        dialog.SetTextColour(RGB(0, 0, 1));
        {
            using Patch = ImportPatch<"CreateCompatibleDC", decltype(::CreateCompatibleDC)>;
            const Patch failing("gdi32.dll", [](HDC like) {
                return like ? nullptr : Patch::Original(like); // that of the painting alone
            });
            PaintAlone(dialog);
            CHECK(failing.Calls() > 0);
            CHECK(Pixels::Of(dialog.Window()).Count(RGB(0, 0, 1), area) == 0);
        }
        PaintAlone(dialog);
        CHECK(Pixels::Of(dialog.Window()).Count(RGB(0, 0, 1), area) > 20);
    });
}

TEST_CASE("Caption: the font is Arial, 12 pixels, weight 600", "[ui]")
{
    LOGFONTW base{};
    ::GetObjectW(::GetStockObject(DEFAULT_GUI_FONT), sizeof(base), &base);
    LOGFONTW made{};
    {
        ImportPatch<"CreateFontIndirectW", decltype(::CreateFontIndirectW)> create(
            "gdi32.dll", [&](const LOGFONTW* font) {
                made = *font;
                return decltype(create)::Original(font);
            });
        const TestDialog dialog(TEST_DIALOG);
    }
    CHECK(std::wstring(made.lfFaceName) == L"Arial");
    CHECK(made.lfHeight == -12);
    CHECK(made.lfWeight == 600);
    CHECK(made.lfCharSet == base.lfCharSet);
    CHECK(made.lfQuality == base.lfQuality);
    CHECK(made.lfItalic == base.lfItalic);
    CHECK(made.lfPitchAndFamily == base.lfPitchAndFamily);
}

TEST_CASE("Caption: one that is set is cut after 519 characters, too", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    for (const std::size_t length : {std::size_t{518}, std::size_t{519}, std::size_t{520}})
    {
        const std::wstring text = std::wstring(length - 1, L'x') + L'y';
        dialog.SetCaptionText(text);
        CHECK(dialog.CaptionText() == text.substr(0, 519));
    }
}

TEST_CASE("Caption: none for an empty text", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        ::SetDlgItemTextW(dialog.Window(), TEST_CHILD_CAPTION, L"");
        ::SendMessageW(dialog.Window(), WM_CREATE, 0, 0);
        dialog.Resize(300, 200);
        PaintAlone(dialog);
        const RECT area = ChildRect(dialog, TEST_CHILD_CAPTION);
        CHECK(Pixels::Of(dialog.Window()).Count(RGB(255, 255, 255), area) == 0);
    });
}

TEST_CASE("Caption: a text that comes with WM_CREATE is drawn in the place of the one before",
          "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        PaintAlone(dialog);
        const RECT area = ChildRect(dialog, TEST_CHILD_CAPTION);
        CHECK(Pixels::Of(dialog.Window()).Count(RGB(255, 255, 255), area) > 20);
        ::SetDlgItemTextW(dialog.Window(), TEST_CHILD_CAPTION, L"");
        ::SendMessageW(dialog.Window(), WM_CREATE, 0, 0);
        PaintAlone(dialog);
        CHECK(Pixels::Of(dialog.Window()).Count(RGB(255, 255, 255), area) == 0);
    });
}

TEST_CASE("Caption: another text or colour invalidates this window alone, and cuts no outline",
          "[ui]")
{
    using InvalidatePatch = ImportPatch<"InvalidateRect", decltype(::InvalidateRect)>;
    using RegionPatch = ImportPatch<"SetWindowRgn", decltype(::SetWindowRgn)>;
    std::vector<HWND> invalidated;
    const InvalidatePatch invalidate("user32.dll", [&](HWND window, const RECT* area, BOOL erase) {
        invalidated.push_back(window);
        return InvalidatePatch::Original(window, area, erase);
    });
    const RegionPatch region("user32.dll", [](HWND window, HRGN given, BOOL redraw) {
        return RegionPatch::Original(window, given, redraw);
    });
    TestDialog dialog(TEST_DIALOG);
    const auto change = [&](bool isText) {
        if (isText)
        {
            dialog.SetCaptionText(L"Another");
        }
        else
        {
            dialog.SetTextColour(RGB(0, 0, 1));
        }
    };
    const bool isText = GENERATE(false, true);
    change(isText);
    CHECK(invalidated.empty()); // without a window, all of the screen would be
    dialog.Show([&] {
        PaintAlone(dialog);
        invalidated.clear();
        const LONG cut = region.Calls();
        CHECK(cut > 0);
        CHECK(::GetUpdateRect(dialog.Window(), nullptr, FALSE) == FALSE);
        change(isText);
        CHECK(invalidated == std::vector<HWND>{dialog.Window()});
        CHECK(::GetUpdateRect(dialog.Window(), nullptr, FALSE) == TRUE);
        PaintAlone(dialog);
        CHECK(region.Calls() == cut);
    });
    invalidated.clear();
    change(isText);
    CHECK(invalidated.empty());
}

TEST_CASE("Caption: drawn with DT_VCENTER alone, transparently, where child 1006 is", "[ui]")
{
    using DrawPatch = ImportPatch<"DrawTextW", decltype(::DrawTextW)>;
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        const RECT place = ChildRect(dialog, TEST_CHILD_CAPTION);
        int drawn = 0;
        const DrawPatch draw("user32.dll", [&](HDC context, const wchar_t* text, int length,
                                               RECT* area, UINT format) {
            ++drawn;
            CHECK(std::wstring(text, static_cast<std::size_t>(length)) == L"Caption");
            CHECK(format == DT_VCENTER);
            CHECK(::GetBkMode(context) == TRANSPARENT);
            CHECK(::GetTextColor(context) == RGB(255, 255, 255));
            CHECK(::EqualRect(area, &place));
            LOGFONTW font{};
            ::GetObjectW(::GetCurrentObject(context, OBJ_FONT), sizeof(font), &font);
            CHECK(font.lfWeight == 600);
            return DrawPatch::Original(context, text, length, area, format);
        });
        dialog.Resize(250, 150);
        PaintAlone(dialog);
        PaintAlone(dialog);
        CHECK(drawn == 1); // smooth text must not be drawn over itself
    });
}

TEST_CASE("Caption: none without child 1006", "[ui]")
{
    using DrawPatch = ImportPatch<"DrawTextW", decltype(::DrawTextW)>;
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        const DrawPatch draw("user32.dll", [](HDC context, const wchar_t* text, int length,
                                              RECT* area, UINT format) {
            return DrawPatch::Original(context, text, length, area, format);
        });
        ::DestroyWindow(dialog.Child(TEST_CHILD_CAPTION));
        CHECK(dialog.CaptionText() == L"Caption");
        dialog.Resize(250, 150);
        PaintAlone(dialog);
        CHECK(draw.Calls() == 0);
    });
}
