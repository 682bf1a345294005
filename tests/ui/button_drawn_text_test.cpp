#include "tests/support/import_patch.h"
#include "tests/ui/button_scene.h"

#include <catch.hpp>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

using namespace velt;
using namespace velt::test;

namespace
{
/// The calls that draw a button's text.
struct TextCalls
{
    struct Out
    {
        int x;
        int y;
        UINT options;
        RECT clip;
        std::wstring text;
    };

    struct Drawn
    {
        std::wstring text;
        UINT format;
        RECT area;
    };

    std::vector<Out> out;
    std::vector<Drawn> drawn;
    std::vector<COLORREF> colours; // of the ones and the others
    std::vector<LOGFONTW> fonts;
};

TextCalls DrawTexts(const ButtonScene& scene)
{
    using OutPatch = ImportPatch<"ExtTextOutW", decltype(::ExtTextOutW)>;
    using DrawPatch = ImportPatch<"DrawTextW", decltype(::DrawTextW)>;
    TextCalls calls;
    const auto note = [&](HDC context) {
        calls.colours.push_back(::GetTextColor(context));
        LOGFONTW font{};
        ::GetObjectW(::GetCurrentObject(context, OBJ_FONT), sizeof(font), &font);
        calls.fonts.push_back(font);
    };
    const OutPatch out("gdi32.dll", [&](HDC context, int x, int y, UINT options, const RECT* clip,
                                        const wchar_t* text, UINT length, const INT* widths) {
        calls.out.push_back({x, y, options, *clip, std::wstring(text, length)});
        note(context);
        return OutPatch::Original(context, x, y, options, clip, text, length, widths);
    });
    const DrawPatch draw(
        "user32.dll", [&](HDC context, const wchar_t* text, int length, RECT* area, UINT format) {
            calls.drawn.push_back(
                {std::wstring(text, static_cast<std::size_t>(length)), format, *area});
            note(context);
            return DrawPatch::Original(context, text, length, area, format);
        });
    const Pixels target(80, 30);
    scene.Send(WM_PRINTCLIENT, reinterpret_cast<WPARAM>(target.Context()), PRF_CLIENT);
    return calls;
}

SIZE Extent(LOGFONTW attributes, const std::wstring& text)
{
    const UniqueFont font(::CreateFontIndirectW(&attributes));
    const Pixels target(1, 1);
    const SelectScope selected(target.Context(), font.Get());
    SIZE size{};
    ::GetTextExtentPoint32W(target.Context(), text.c_str(), static_cast<int>(text.size()), &size);
    return size;
}

bool AreSame(const LOGFONTW& a, const LOGFONTW& b)
{
    return a.lfHeight == b.lfHeight && a.lfWeight == b.lfWeight && a.lfItalic == b.lfItalic &&
           a.lfUnderline == b.lfUnderline && a.lfEscapement == b.lfEscapement &&
           a.lfCharSet == b.lfCharSet && ::lstrcmpW(a.lfFaceName, b.lfFaceName) == 0;
}

LOGFONTW TestFont(LONG escapement)
{
    LOGFONTW attributes{};
    ::GetObjectW(::GetStockObject(DEFAULT_GUI_FONT), sizeof(attributes), &attributes);
    ::lstrcpyW(attributes.lfFaceName, L"Arial");
    attributes.lfHeight = -9;
    attributes.lfEscapement = escapement;
    attributes.lfOrientation = escapement;
    return attributes;
}
} // namespace

TEST_CASE("Button text: \"OK\" is drawn by ExtTextOutW, centred and clipped", "[ui]")
{
    ButtonScene scene(L"OK");
    scene.Show([&] {
        const LOGFONTW attributes = TestFont(0);
        const UniqueFont font(::CreateFontIndirectW(&attributes));
        scene.Send(WM_SETFONT, reinterpret_cast<WPARAM>(font.Get()));
        const TextCalls calls = DrawTexts(scene);
        CHECK(calls.drawn.empty());
        REQUIRE(calls.out.size() == 1);
        const SIZE size = Extent(attributes, L"OK");
        CHECK(calls.out[0].text == L"OK");
        CHECK(calls.out[0].x == 5 + (70 - size.cx) / 2);
        CHECK(calls.out[0].y == 5 + (20 - size.cy) / 2);
        CHECK(calls.out[0].options == ETO_CLIPPED);
        const RECT clip{5, 5, 75, 25};
        CHECK(::EqualRect(&calls.out[0].clip, &clip));
    });
}

TEST_CASE("Button text: \"I &accept\" is drawn by DrawTextW with an underlined a", "[ui]")
{
    ButtonScene scene(L"I &accept");
    scene.Show([&] {
        const TextCalls calls = DrawTexts(scene);
        REQUIRE(calls.drawn.size() == 1);
        CHECK(calls.out.empty());
        CHECK(calls.drawn[0].text == L"I &accept");
        CHECK(calls.drawn[0].format == DT_CENTER);
        const RECT area{5, 5, 75, 25}; // all but a margin of 5 pixels
        CHECK(::EqualRect(&calls.drawn[0].area, &area));

        // Without the mnemonic the same letters are shown; the underline makes the difference.
        const Pixels with = Pixels::Of(scene.window);
        ::SetWindowTextW(scene.window, L"I a&&ccept");
        ::UpdateWindow(scene.window);
        CHECK(Pixels::Of(scene.window).Count(kBlack) != with.Count(kBlack));
    });
}

TEST_CASE("Button text: 900 runs upward, other escapements draw none", "[ui]")
{
    ButtonScene scene(L"OK");
    scene.Show([&] {
        const LONG escapement = GENERATE(900, 450, 1800, 2700, -900, 1, 899);
        const LOGFONTW attributes = TestFont(escapement);
        const UniqueFont font(::CreateFontIndirectW(&attributes));
        scene.Send(WM_SETFONT, reinterpret_cast<WPARAM>(font.Get()));
        const TextCalls calls = DrawTexts(scene);
        CHECK(calls.drawn.empty());
        REQUIRE(calls.out.size() == (escapement == 900 ? 1 : 0));
        if (escapement == 900)
        {
            const SIZE size = Extent(attributes, L"OK");
            CHECK(calls.out[0].x == 5 + (70 - size.cy) / 2);
            CHECK(calls.out[0].y == 25 - (20 - size.cx) / 2);
        }
        // So it is with a mnemonic, which the system draws.
        ::SetWindowTextW(scene.window, L"&OK");
        const TextCalls mnemonic = DrawTexts(scene);
        CHECK(mnemonic.out.empty());
        CHECK(mnemonic.drawn.size() == (escapement == 900 ? 1 : 0));
        scene.Send(WM_SETFONT, 0);
    });
}

TEST_CASE("Button text: two lines, centred on the second, half a height apart", "[ui]")
{
    ButtonScene scene(L"a long line\nOK & on");
    scene.Show([&] {
        const LONG escapement = GENERATE(0, 2700, 900, 450); // all but 2700 are alike
        const LOGFONTW attributes = TestFont(escapement);
        const UniqueFont font(::CreateFontIndirectW(&attributes));
        scene.Send(WM_SETFONT, reinterpret_cast<WPARAM>(font.Get()));
        const TextCalls calls = DrawTexts(scene);
        CHECK(calls.drawn.empty());
        REQUIRE(calls.out.size() == 2);
        CHECK(calls.out[0].text == L"a long line");
        CHECK(calls.out[1].text == L"OK & on");
        const SIZE first = Extent(attributes, L"a long line");
        const SIZE second = Extent(attributes, L"OK & on");
        const auto high = [&](SIZE size) { return escapement == 2700 ? size.cx : size.cy; };
        const LONG x = 5 + std::max(0L, (70 - second.cx) / 2);
        const LONG y = 5 + std::max(0L, (20 - high(first)) / 2);
        CHECK(calls.out[0].x == x);
        CHECK(calls.out[1].x == x);
        CHECK(calls.out[0].y == y);
        CHECK(calls.out[1].y == y + std::max(high(first), high(second)) / 2);
        scene.Send(WM_SETFONT, 0);
    });
}

TEST_CASE("Button text: at most 256 characters are read; without a font the stock one is taken",
          "[ui]")
{
    ButtonScene scene(std::wstring(300, L'i'));
    scene.Show([&] {
        scene.Send(WM_SETFONT, 0);
        const TextCalls calls = DrawTexts(scene);
        REQUIRE(calls.out.size() == 1);
        CHECK(calls.out[0].text == std::wstring(256, L'i'));
        CHECK(calls.out[0].x == 5); // too long to be centred
        LOGFONTW stock{};
        ::GetObjectW(::GetStockObject(DEFAULT_GUI_FONT), sizeof(stock), &stock);
        REQUIRE(calls.fonts.size() == 1);
        CHECK(AreSame(calls.fonts[0], stock));

        LOGFONTW own = TestFont(0);
        own.lfItalic = TRUE;
        const UniqueFont font(::CreateFontIndirectW(&own));
        scene.Send(WM_SETFONT, reinterpret_cast<WPARAM>(font.Get()));
        CHECK(AreSame(DrawTexts(scene).fonts.at(0), own));
        scene.Send(WM_SETFONT, 0);
    });
}

TEST_CASE("Button text: it is black, and RGB(180,180,180) when the button is disabled", "[ui]")
{
    ButtonScene scene;
    scene.Show([&] {
        for (const wchar_t* text : {L"OK", L"&OK", L"O\nK"})
        {
            ::SetWindowTextW(scene.window, text);
            for (const bool isEnabled : {true, false})
            {
                ::EnableWindow(scene.window, isEnabled);
                const std::vector<COLORREF> colours = DrawTexts(scene).colours;
                CHECK_FALSE(colours.empty());
                CHECK(colours ==
                      std::vector<COLORREF>(colours.size(),
                                            isEnabled ? RGB(0, 0, 0) : RGB(180, 180, 180)));
            }
        }
    });
}

TEST_CASE("Faces: a face that cannot be loaded leaves text and commands as they are", "[ui]")
{
    ButtonScene scene(L"OK");
    const ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)> failing(
        "user32.dll", [](HINSTANCE, const wchar_t*) { return static_cast<HBITMAP>(nullptr); });
    scene.Show([&] {
        CHECK(DrawTexts(scene).out.size() == 1);
        CHECK(failing.Calls() > 0);
        CHECK(Pixels::Of(scene.window).At(5, 0) == kBlack);
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.Commands().size() == 1);
    });
}
