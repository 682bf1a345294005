#include "tests/support/import_patch.h"
#include "tests/ui/pixels.h"
#include "tests/ui/test_dialog.h"
#include "ui/halden_style_button.h"

#include <commctrl.h>

#include <catch.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

using namespace velt;
using namespace velt::test;

namespace
{
constexpr COLORREF kBlack = RGB(0, 0, 0);
constexpr COLORREF kDisabled = RGB(180, 180, 180);

/// A dialog that is shown with its button taken over.
struct Scene
{
    explicit Scene(std::wstring buttonText = L"") : text(std::move(buttonText)) {}

    template <class Body>
    void Show(Body body)
    {
        dialog.Show([&] {
            window = dialog.Child(TEST_CHILD_BUTTON);
            ::SetWindowTextW(window, text.c_str());
            ::SetWindowPos(window, nullptr, 100, 60, 80, 30, SWP_NOZORDER);
            ::SetFocus(dialog.Child(TEST_CHILD_EDIT));
            ::SetCursorPos(5, 5); // away from the button
            REQUIRE(button.SubclassWindow(window));
            ::UpdateWindow(dialog.Window());
            ::UpdateWindow(window);
            TestDialog::Pump();
            dialog.Forget();
            body();
        });
    }

    LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const
    {
        return ::SendMessageW(window, message, wParam, lParam);
    }

    /// The face's colour at its left end, which is drawn unscaled in width.
    UINT Face() const
    {
        const Pixels shown = Pixels::Of(window);
        for (const UINT id :
             std::initializer_list<UINT>{TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED})
        {
            if (shown.At(5, 0) == Pixels::OfResource(id).At(5, 0))
            {
                return id;
            }
        }
        return 0;
    }

    std::vector<TestDialog::Message> Commands() const
    {
        return dialog.Got(WM_COMMAND);
    }

    /// Where the dialog sees a point of the button.
    LPARAM InDialog(int x, int y) const
    {
        return MAKELPARAM(100 + x, 60 + y);
    }

    std::wstring text;
    TestDialog dialog{TEST_DIALOG};
    CHaldenStyleButton button{TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED};
    HWND window = nullptr;
};

constexpr LPARAM kInside = MAKELPARAM(40, 15);
constexpr LPARAM kOutside = MAKELPARAM(200, 15);

/// What the face looks like on a button of 80 x 30, on black ground: the test's own account.
Pixels ExpectedFace(UINT id)
{
    const Pixels face = Pixels::OfResource(id);
    Pixels expected(80, 30);
    ::SetStretchBltMode(expected.Context(), COLORONCOLOR);
    const int slices[][4] = {{0, 10, 0, 10}, {10, 10, 10, 60}, {20, 10, 70, 10}};
    for (const auto& [sourceX, sourceWidth, targetX, targetWidth] : slices)
    {
        ::StretchBlt(expected.Context(), targetX, 0, targetWidth, 30, face.Context(), sourceX, 0,
                     sourceWidth, 12, SRCCOPY);
    }
    expected.Flush();
    return expected;
}
} // namespace

TEST_CASE("CHaldenStyleButton: takes one button over, makes it owner-drawn and gives it back",
          "[ui]")
{
    Scene scene(L"OK");
    scene.Show([&] {
        CHECK(scene.button.Window() == scene.window);
        CHECK((::GetWindowLongPtrW(scene.window, GWL_STYLE) & BS_OWNERDRAW) == BS_OWNERDRAW);
        CHECK_FALSE(scene.button.SubclassWindow(scene.dialog.Child(TEST_CHILD_RADIO)));
        CHECK(scene.button.Window() == scene.window);

        CHaldenStyleButton none(TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED);
        CHECK_FALSE(none.SubclassWindow(nullptr));
        CHECK(none.Window() == nullptr);
        const HWND radio = scene.dialog.Child(TEST_CHILD_RADIO);
        {
            CHaldenStyleButton other(TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED);
            CHECK(other.SubclassWindow(radio));
            CHECK(::SendMessageW(radio, WM_INITDIALOG, 0, 0) == 1);
        }
        CHECK(::SendMessageW(radio, WM_INITDIALOG, 0, 0) == 0);
        ::DestroyWindow(scene.window);
        CHECK(scene.button.Window() == nullptr);
    });
}

TEST_CASE("CHaldenStyleButton: WM_CREATE and WM_INITDIALOG initialise it and answer 1", "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_CREATE, WM_INITDIALOG);
    Scene scene;
    scene.Show([&] {
        ::SetWindowLongPtrW(scene.window, GWL_STYLE, WS_CHILD | WS_VISIBLE);
        CHECK(scene.Send(message) == 1);
        CHECK((::GetWindowLongPtrW(scene.window, GWL_STYLE) & BS_OWNERDRAW) == BS_OWNERDRAW);
    });
}

TEST_CASE("CHaldenStyleButton: faces are drawn in three slices over black ground", "[ui]")
{
    Scene scene;
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
    Scene scene(L"OK");
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
    Scene scene;
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
    Scene scene;
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
    Scene scene(L"HHHH");
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

    std::vector<Out> out;
    std::vector<std::pair<std::wstring, UINT>> drawn;
};

TextCalls DrawTexts(const Scene& scene)
{
    using OutPatch = ImportPatch<"ExtTextOutW", decltype(::ExtTextOutW)>;
    using DrawPatch = ImportPatch<"DrawTextW", decltype(::DrawTextW)>;
    TextCalls calls;
    const OutPatch out("gdi32.dll", [&](HDC context, int x, int y, UINT options, const RECT* clip,
                                        const wchar_t* text, UINT length, const INT* widths) {
        calls.out.push_back({x, y, options, *clip, std::wstring(text, length)});
        return OutPatch::Original(context, x, y, options, clip, text, length, widths);
    });
    const DrawPatch draw(
        "user32.dll", [&](HDC context, const wchar_t* text, int length, RECT* area, UINT format) {
            calls.drawn.emplace_back(std::wstring(text, static_cast<std::size_t>(length)), format);
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
    Scene scene(L"OK");
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
    Scene scene(L"I &accept");
    scene.Show([&] {
        const TextCalls calls = DrawTexts(scene);
        REQUIRE(calls.drawn.size() == 1);
        CHECK(calls.drawn[0].first == L"I &accept");
        CHECK(calls.drawn[0].second == DT_CENTER);

        // Without the mnemonic the same letters are shown; the underline makes the difference.
        const Pixels with = Pixels::Of(scene.window);
        ::SetWindowTextW(scene.window, L"I a&&ccept");
        ::UpdateWindow(scene.window);
        CHECK(Pixels::Of(scene.window).Count(kBlack) != with.Count(kBlack));
    });
}

TEST_CASE("Button text: 900 runs upward, other escapements draw none", "[ui]")
{
    Scene scene(L"OK");
    scene.Show([&] {
        const LONG escapement = GENERATE(900, 450, 1800, 2700);
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
        scene.Send(WM_SETFONT, 0);
    });
}

TEST_CASE("Button text: two lines, centred on the second, half a height apart", "[ui]")
{
    Scene scene(L"a long line\nOK & on");
    scene.Show([&] {
        const LONG escapement = GENERATE(0, 2700);
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
    Scene scene(std::wstring(300, L'i'));
    scene.Show([&] {
        scene.Send(WM_SETFONT, 0);
        const TextCalls calls = DrawTexts(scene);
        REQUIRE(calls.out.size() == 1);
        CHECK(calls.out[0].text == std::wstring(256, L'i'));
        CHECK(calls.out[0].x == 5); // too long to be centred
    });
}

TEST_CASE("Press: captured, shown, set as pushed and forwarded with the parent's point", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        CHECK(scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(3, 4)) == 0);
        CHECK(::GetCapture() == scene.window);
        CHECK((scene.Send(BM_GETSTATE) & BST_PUSHED) != 0);
        CHECK(scene.Face() == TEST_FACE_PRESSED);
        CHECK(scene.dialog.Got(WM_LBUTTONDOWN) ==
              std::vector<TestDialog::Message>{{WM_LBUTTONDOWN, MK_LBUTTON, scene.InDialog(3, 4)}});
        TestDialog::Pump();
        CHECK(scene.dialog.Got(WM_NCLBUTTONDOWN).empty());          // the dialog does not move
        CHECK(::GetFocus() == scene.dialog.Child(TEST_CHILD_EDIT)); // original code is not run
        ::ReleaseCapture();
        CHECK(scene.Face() == TEST_FACE_NORMAL);
    });
}

TEST_CASE("Press: without the capture it is not shown, and still forwarded", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        const ImportPatch<"SetCapture", decltype(::SetCapture)> failing(
            "user32.dll", [](HWND) { return static_cast<HWND>(nullptr); });
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        CHECK(scene.dialog.Got(WM_LBUTTONDOWN).size() == 1);
    });
}

TEST_CASE("Release: inside brings one command, and the capture ends", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        CHECK(scene.Commands().empty());
        CHECK(scene.Send(WM_LBUTTONUP, 0, MAKELPARAM(3, 4)) == 0);
        CHECK(scene.Commands() == std::vector<TestDialog::Message>{
                                      {WM_COMMAND, MAKEWPARAM(TEST_CHILD_BUTTON, BN_CLICKED),
                                       reinterpret_cast<LPARAM>(scene.window)}});
        CHECK(::GetCapture() == nullptr);
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        CHECK(scene.dialog.Got(WM_LBUTTONUP) ==
              std::vector<TestDialog::Message>{{WM_LBUTTONUP, 0, scene.InDialog(3, 4)}});
    });
}

TEST_CASE("Release: pressing, moving out and back in, then releasing brings one command", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_MOUSEMOVE, MK_LBUTTON, kOutside);
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        scene.Send(WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(-1, -1));
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        scene.Send(WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(0, 0));
        CHECK(scene.Face() == TEST_FACE_PRESSED);
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.Commands().size() == 1);
    });
}

TEST_CASE("Release: outside brings none, and is forwarded", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_MOUSEMOVE, MK_LBUTTON, kOutside);
        scene.Send(WM_LBUTTONUP, 0, kOutside);
        CHECK(scene.Commands().empty());
        CHECK(::GetCapture() == nullptr);
        CHECK(scene.dialog.Got(WM_LBUTTONUP).size() == 1);
    });
}

TEST_CASE("Release: without the capture brings none, and is forwarded", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.Commands().empty());
        CHECK(scene.dialog.Got(WM_LBUTTONUP).size() == 1);
    });
}

TEST_CASE("Release: the command may destroy button and dialog", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        scene.dialog.onMessage = [&](const TestDialog::Message& message) {
            if (message.message == WM_COMMAND)
            {
                ::DestroyWindow(scene.window);
            }
        };
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.button.Window() == nullptr);
        CHECK(scene.Commands().size() == 1);
    });
}

TEST_CASE("Double click: the pressed face, no capture, no command; forwarded", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        CHECK(scene.Send(WM_LBUTTONDBLCLK, MK_LBUTTON, MAKELPARAM(3, 4)) == 0);
        CHECK(scene.Face() == TEST_FACE_PRESSED);
        CHECK(::GetCapture() == nullptr);
        CHECK(
            scene.dialog.Got(WM_LBUTTONDBLCLK) ==
            std::vector<TestDialog::Message>{{WM_LBUTTONDBLCLK, MK_LBUTTON, scene.InDialog(3, 4)}});
        scene.Send(WM_LBUTTONUP, 0, MAKELPARAM(3, 4));
        CHECK(scene.Commands().empty());
    });
}

TEST_CASE("WM_CAPTURECHANGED: a pressed button is no longer", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        scene.Send(WM_LBUTTONDBLCLK, MK_LBUTTON, kInside);
        scene.Send(WM_CAPTURECHANGED);
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        scene.dialog.Forget();
        scene.Send(WM_CAPTURECHANGED); // nothing changes, nothing is painted
        CHECK(scene.dialog.Got(WM_CTLCOLORSTATIC).empty());
    });
}

TEST_CASE("WM_MOUSEMOVE: hot once, with leave tracking; WM_MOUSELEAVE ends it", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        using TrackPatch = ImportPatch<"_TrackMouseEvent", decltype(::_TrackMouseEvent)>;
        TRACKMOUSEEVENT asked{};
        const TrackPatch track("comctl32.dll", [&](TRACKMOUSEEVENT* event) {
            asked = *event;
            return TRUE; // the pointer is elsewhere, so the system would end it at once
        });
        scene.Send(WM_MOUSEMOVE, 0, kInside);
        CHECK(scene.Face() == TEST_FACE_HOT);
        CHECK(track.Calls() == 1);
        CHECK(asked.dwFlags == TME_LEAVE);
        CHECK(asked.hwndTrack == scene.window);
        scene.dialog.Forget();
        scene.Send(WM_MOUSEMOVE, 0, kInside);
        CHECK(track.Calls() == 1);
        CHECK(scene.dialog.Got(WM_CTLCOLORSTATIC).empty()); // not painted again

        CHECK(scene.Send(WM_MOUSELEAVE) == 0);
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        scene.dialog.Forget();
        scene.Send(WM_MOUSELEAVE);
        CHECK(scene.dialog.Got(WM_CTLCOLORSTATIC).empty());
    });
}

TEST_CASE("WM_SETFOCUS, WM_KILLFOCUS: the focus shows the hot face", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        ::SetFocus(scene.window);
        CHECK(scene.Face() == TEST_FACE_HOT);
        CHECK((scene.Send(BM_GETSTATE) & BST_FOCUS) != 0); // the original procedure had it too
        scene.Send(WM_LBUTTONDBLCLK, MK_LBUTTON, kInside);
        CHECK(scene.Face() == TEST_FACE_PRESSED); // comes before the focus
        scene.Send(WM_CAPTURECHANGED);
        ::SetFocus(scene.dialog.Child(TEST_CHILD_EDIT));
        CHECK(scene.Face() == TEST_FACE_NORMAL);
    });
}

TEST_CASE("Keyboard: Space on the focused button brings the command", "[ui]")
{
    Scene scene;
    scene.Show([&] {
        ::SetFocus(scene.window);
        scene.Send(WM_KEYDOWN, VK_SPACE);
        scene.Send(WM_KEYUP, VK_SPACE);
        std::size_t clicks = 0;
        for (const auto& command : scene.Commands())
        {
            clicks += command.wParam == MAKEWPARAM(TEST_CHILD_BUTTON, BN_CLICKED) ? 1U : 0U;
        }
        CHECK(clicks == 1);
    });
}

TEST_CASE("Repainting: the whole button, its ground erased", "[ui]")
{
    Scene scene;
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

namespace
{
/// The tooltip of the button: the one window of that class that it owns through its dialog.
HWND FindTooltip(const TestDialog& dialog)
{
    HWND found = nullptr;
    while ((found = ::FindWindowExW(nullptr, found, TOOLTIPS_CLASSW, nullptr)) != nullptr)
    {
        if (::GetWindow(found, GW_OWNER) == dialog.Window())
        {
            return found;
        }
    }
    return nullptr;
}

std::wstring ToolText(HWND tooltip, HWND button)
{
    std::array<wchar_t, 100> text{};
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V1_SIZE;
    tool.hwnd = button;
    tool.uId = reinterpret_cast<UINT_PTR>(button);
    tool.lpszText = text.data();
    ::SendMessageW(tooltip, TTM_GETTEXTW, 100, reinterpret_cast<LPARAM>(&tool));
    return text.data();
}
} // namespace

TEST_CASE("Tooltip: one tool for the whole button with the text; none without a text", "[ui]")
{
    Scene scene;
    const bool isSetBefore = GENERATE(false, true);
    if (isSetBefore)
    {
        scene.button.SetTooltipText(L"What it does");
    }
    scene.Show([&] {
        const HWND tooltip = FindTooltip(scene.dialog);
        REQUIRE(tooltip);
        CHECK(::SendMessageW(tooltip, TTM_GETTOOLCOUNT, 0, 0) == (isSetBefore ? 1 : 0));
        scene.button.SetTooltipText(L"Something else");
        CHECK(::SendMessageW(tooltip, TTM_GETTOOLCOUNT, 0, 0) == 1);
        CHECK(ToolText(tooltip, scene.window) == L"Something else");
        scene.button.SetTooltipText(L"");
        CHECK(::SendMessageW(tooltip, TTM_GETTOOLCOUNT, 0, 0) == 0);
        ::DestroyWindow(scene.window);
        CHECK_FALSE(::IsWindow(tooltip));
    });
}

TEST_CASE("Tooltip: gets every mouse message, and nothing else", "[ui]")
{
    Scene scene;
    scene.button.SetTooltipText(L"What it does");
    scene.Show([&] {
        using SendPatch = ImportPatch<"SendMessageW", decltype(::SendMessageW)>;
        const HWND tooltip = FindTooltip(scene.dialog);
        std::vector<UINT> relayed;
        const SendPatch patch("user32.dll",
                              [&](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
                                  if (window == tooltip && message == TTM_RELAYEVENT)
                                  {
                                      const MSG& given = *reinterpret_cast<const MSG*>(lParam);
                                      CHECK(given.hwnd == scene.window);
                                      CHECK(given.lParam == kInside);
                                      CHECK(given.time == 0);
                                      CHECK(given.pt.x == 0);
                                      relayed.push_back(given.message);
                                  }
                                  return SendPatch::Original(window, message, wParam, lParam);
                              });
        std::vector<UINT> sent;
        for (UINT message = WM_MOUSEMOVE - 1; message <= WM_MOUSEWHEEL + 1; ++message)
        {
            SendPatch::Original(scene.window, message, 0, kInside);
            if (message >= WM_MOUSEMOVE && message <= WM_MOUSEWHEEL)
            {
                sent.push_back(message);
            }
        }
        CHECK(relayed == sent);
        CHECK(sent.size() == 11);
    });
}

TEST_CASE("Tooltip: the button works without the control", "[ui]")
{
    Scene scene;
    scene.button.SetTooltipText(L"What it does");
    using CreatePatch = ImportPatch<"CreateWindowExW", decltype(::CreateWindowExW)>;
    const CreatePatch failing("user32.dll", [](DWORD, const wchar_t*, const wchar_t*, DWORD, int,
                                               int, int, int, HWND, HMENU, HINSTANCE,
                                               void*) { return static_cast<HWND>(nullptr); });
    scene.Show([&] {
        CHECK(failing.Calls() == 1);
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.Commands().size() == 1);
    });
}

TEST_CASE("High contrast: the button is the system's, in the system's colours", "[ui]")
{
    using SettingPatch = ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)>;
    Scene scene(L"HHHH");
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

TEST_CASE("Faces: a face that cannot be loaded leaves text and commands as they are", "[ui]")
{
    Scene scene(L"OK");
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

TEST_CASE("Faces: each is loaded once", "[ui]")
{
    using LoadPatch = ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)>;
    Scene scene;
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
