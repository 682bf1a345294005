#include "tests/support/import_patch.h"
#include "tests/support/trace_recorder.h"
#include "tests/ui/pixels.h"
#include "tests/ui/test_dialog.h"

#include <comdef.h>

#include <catch.hpp>

#include <array>
#include <string>
#include <vector>

using namespace velt;
using namespace velt::test;

namespace
{
constexpr COLORREF kRed = RGB(255, 0, 0);
constexpr COLORREF kControlGrey = RGB(237, 237, 237);

struct NineCopies
{
    int source[4];
    int target[4];
};

/// The test's own account of the nine slices: where each part of the skin goes for a size.
std::vector<NineCopies> NineCopiesFor(int bw, int bh, int w, int h)
{
    const int tlw = 12, tlh = 8, trw = 10, trh = 6, blw = 9, blh = 7, brw = 11, brh = 5;
    const int mw = w - tlw - trw;
    const int mh = h - blh - tlh;
    const int mb = w - blw - brw;
    return {
        {{0, 0, tlw, tlh}, {0, 0, tlw, tlh}},
        {{tlw, 0, bw - tlw - trw, tlh}, {tlw, 0, mw, tlh}},
        {{bw - trw, 0, trw, trh}, {tlw + mw, 0, trw, trh}},
        {{0, tlh, tlw, bh - blh - tlh}, {0, tlh, tlw, mh}},
        {{tlw, tlh, bw - tlw - trw, bh - tlh - trh}, {tlw, tlh, mw, mh}},
        {{bw - trw, trh, trw, bh - trh - brh}, {tlw + mw, trh, trw, mh}},
        {{0, bh - blh, blw, blh}, {0, tlh + mh, blw, blh}},
        {{blw, bh - blh, bw - blw - brw, blh}, {blw, tlh + mh, mb, blh}},
        {{bw - brw, bh - brh, brw, brh}, {blw + mb, tlh + mh, brw, brh}},
    };
}

Pixels ExpectedSkin(UINT skinId, int width, int height)
{
    const Pixels skin = Pixels::OfResource(skinId);
    Pixels expected(width, height);
    ::SetStretchBltMode(expected.Context(), COLORONCOLOR);
    for (const auto& [s, t] : NineCopiesFor(skin.Width(), skin.Height(), width, height))
    {
        ::StretchBlt(expected.Context(), t[0], t[1], t[2], t[3], skin.Context(), s[0], s[1], s[2],
                     s[3], SRCCOPY);
    }
    expected.Flush();
    return expected;
}

/// The window's region; its type is ERROR when it has none.
struct Outline
{
    explicit Outline(HWND window) : type(::GetWindowRgn(window, region.Get())) {}

    bool Contains(int x, int y) const
    {
        return ::PtInRegion(region.Get(), x, y) != FALSE;
    }

    UniqueRegion region{::CreateRectRgn(0, 0, 0, 0)};
    int type;
};

/// How many pixels are not as expected: outside the outline where the skin is red, inside it and
/// of the skin's colour elsewhere.
int WrongPixels(const TestDialog& dialog, const Pixels& expected)
{
    const Pixels shown = Pixels::Of(dialog.Window());
    const Outline outline(dialog.Window());
    int wrong = 0;
    for (int y = 0; y < expected.Height(); ++y)
    {
        for (int x = 0; x < expected.Width(); ++x)
        {
            const COLORREF colour = expected.At(x, y);
            const bool isRight = colour == kRed
                                     ? !outline.Contains(x, y)
                                     : outline.Contains(x, y) && shown.At(x, y) == colour;
            wrong += isRight ? 0 : 1;
        }
    }
    return wrong;
}

RECT ChildRect(const TestDialog& dialog, int id)
{
    RECT area{};
    ::GetWindowRect(dialog.Child(id), &area);
    ::MapWindowPoints(nullptr, dialog.Window(), reinterpret_cast<POINT*>(&area), 2);
    return area;
}

COLORREF BrushColour(LRESULT brush)
{
    LOGBRUSH attributes{};
    ::GetObjectW(reinterpret_cast<HGDIOBJ>(brush), sizeof(attributes), &attributes);
    return attributes.lbStyle == BS_SOLID ? attributes.lbColor : CLR_INVALID;
}

/// The whole dialog is painted, its children are not.
void PaintAlone(const TestDialog& dialog)
{
    ::RedrawWindow(dialog.Window(), nullptr, nullptr,
                   RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW | RDW_NOCHILDREN);
}

/// The user's high-contrast setting, as the component sees it. Not every system can change it.
class HighContrast
{
public:
    HighContrast()
        : m_patch("user32.dll", [](UINT action, UINT size, void* value, UINT flags) {
              const BOOL done = decltype(m_patch)::Original(action, size, value, flags);
              if (action == SPI_GETHIGHCONTRAST)
              {
                  static_cast<HIGHCONTRASTW*>(value)->dwFlags |= HCF_HIGHCONTRASTON;
                  return TRUE;
              }
              return done;
          })
    {
    }

private:
    ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)> m_patch;
};
} // namespace

TEST_CASE("InitSkin: a skin that is not there is a _com_error with the last error's HRESULT",
          "[ui]")
{
    try
    {
        const TestDialog dialog(TEST_DIALOG, TEST_SKIN_MISSING);
        FAIL("made");
    }
    catch (const _com_error& e)
    {
        CHECK(e.Error() == HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND));
    }
}

TEST_CASE("InitSkin: the error's code is what the system left, also none", "[ui]")
{
    const auto [error, hr] =
        GENERATE(table<DWORD, HRESULT>({{ERROR_NOT_ENOUGH_MEMORY, static_cast<HRESULT>(0x80070008)},
                                        {0, S_OK},
                                        {static_cast<DWORD>(E_ACCESSDENIED), E_ACCESSDENIED}}));
    const DWORD lastError = error;
    const ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)> load(
        "user32.dll", [lastError](HINSTANCE, const wchar_t*) {
            ::SetLastError(lastError);
            return static_cast<HBITMAP>(nullptr);
        });
    try
    {
        const TestDialog dialog(TEST_DIALOG);
        FAIL("made");
    }
    catch (const _com_error& e)
    {
        CHECK(e.Error() == hr);
    }
}

TEST_CASE("InitSkin: a dialog that is not skinned needs no skin", "[ui]")
{
    CHECK_NOTHROW(TestDialog(TEST_DIALOG, TEST_SKIN_MISSING, false));
}

TEST_CASE("DoModal: shows the dialog until it is ended and returns its result", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    CHECK(dialog.Window() == nullptr);
    HWND window = nullptr;
    CHECK(dialog.Show([&] {
        window = dialog.Window();
        CHECK(::IsWindowVisible(window));
        CHECK(dialog.messages.front().message == WM_INITDIALOG);
    }) == 7);
    CHECK_FALSE(::IsWindow(window));
    CHECK(dialog.Window() == nullptr);
    CHECK(dialog.messages.back().message == WM_NCDESTROY);
    CHECK(dialog.Show([] {}) == 7); // and once more
}

TEST_CASE("DoModal: -1 without a template, and the last error says why", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_MISSING);
    CHECK(dialog.Show([] {}) == -1);
    CHECK(::GetLastError() == ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST_CASE("DoModal: an exception of a handler ends the dialog and comes out", "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_INITDIALOG, WM_APP + 1, WM_DESTROY);
    TestDialog dialog(TEST_DIALOG);
    dialog.onMessage = [message](const TestDialog::Message& got) {
        if (got.message == message)
        {
            throw std::out_of_range("the test's");
        }
    };
    CHECK_THROWS_AS(dialog.Show([] {}), std::out_of_range);
    CHECK(dialog.Window() == nullptr);
    dialog.onMessage = nullptr;
    CHECK(dialog.Show([] {}) == 7);
}

TEST_CASE("WM_INITDIALOG, WM_CREATE: copy at most 519 characters of child 1006; the result is TRUE",
          "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_INITDIALOG, WM_CREATE);
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        CHECK(dialog.CaptionText() == L"Caption");
        const std::wstring text(600, L'x');
        ::SetDlgItemTextW(dialog.Window(), TEST_CHILD_CAPTION, text.c_str());
        ::SendMessageW(dialog.Window(), message, 0, 0);
        CHECK(dialog.CaptionText() == text.substr(0, 519));
        const std::optional<LRESULT> result =
            static_cast<TestDialog&>(dialog).ProcessMessage(WM_CREATE, 0, 0);
        CHECK(result == TRUE);
    });
}

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

TEST_CASE("WM_LBUTTONDOWN: a press on the bare surface goes on as one on the caption", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        const auto press = [&](const RECT& at) {
            TestDialog::Pump();
            dialog.Forget();
            const LPARAM point = MAKELPARAM(at.left + 1, at.top + 1);
            CHECK(::SendMessageW(dialog.Window(), WM_LBUTTONDOWN, MK_LBUTTON, point) == 0);
            CHECK(dialog.Got(WM_NCLBUTTONDOWN).empty()); // posted, not sent
            TestDialog::Pump();
            const auto got = dialog.Got(WM_NCLBUTTONDOWN);
            return got.size() == 1 &&
                   got.front() == TestDialog::Message{WM_NCLBUTTONDOWN, HTCAPTION, point};
        };
        CHECK(press({150, 60, 0, 0}));
        CHECK(press(ChildRect(dialog, TEST_CHILD_CAPTION))); // hidden, so that this is bare
        for (const int child :
             {TEST_CHILD_BUTTON, TEST_CHILD_LABEL, TEST_CHILD_EDIT, TEST_CHILD_RADIO})
        {
            INFO(child);
            CHECK_FALSE(press(ChildRect(dialog, child)));
            CHECK(dialog.Got(WM_NCLBUTTONDOWN).empty());
        }
        ::EnableWindow(dialog.Child(TEST_CHILD_EDIT), FALSE); // its presses come to the dialog
        CHECK_FALSE(press(ChildRect(dialog, TEST_CHILD_EDIT)));
    });
}

TEST_CASE("WM_CTLCOLOR...: transparent, in the text colour, on the grey brush; traced", "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_CTLCOLOREDIT, WM_CTLCOLORSTATIC, WM_CTLCOLORDLG);
    const auto [colour, isSet] =
        GENERATE(table<COLORREF, bool>({{RGB(255, 255, 255), false}, {RGB(1, 2, 3), true}}));
    TraceRecorder trace;
    TestDialog dialog(TEST_DIALOG);
    if (isSet)
    {
        dialog.SetTextColour(colour);
    }
    dialog.Show([&, colour = colour] {
        const Pixels target(10, 10);
        ::SetBkMode(target.Context(), OPAQUE);
        const auto ask = [&](HWND control) {
            return ::SendMessageW(dialog.Window(), message,
                                  reinterpret_cast<WPARAM>(target.Context()),
                                  reinterpret_cast<LPARAM>(control));
        };
        const std::size_t before = trace.Count("Using Brush");
        const LRESULT brush = ask(dialog.Child(TEST_CHILD_LABEL));
        CHECK(trace.Count("Using Brush") == before + 1);
        CHECK(trace.Messages().back().level == 3);
        CHECK(BrushColour(brush) == kControlGrey);
        CHECK(::GetBkMode(target.Context()) == TRANSPARENT);
        CHECK(::GetTextColor(target.Context()) == colour);
        CHECK(ask(dialog.Window()) == reinterpret_cast<LRESULT>(::GetStockObject(NULL_BRUSH)));
    });
}

TEST_CASE("WM_CTLCOLOR...: with high contrast on, child controls take the system's colours", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.SetTextColour(RGB(1, 2, 3));
    dialog.Show([&] {
        const HighContrast on;
        const Pixels target(10, 10);
        const auto ask = [&](UINT message, HWND control) {
            return ::SendMessageW(dialog.Window(), message,
                                  reinterpret_cast<WPARAM>(target.Context()),
                                  reinterpret_cast<LPARAM>(control));
        };
        CHECK(ask(WM_CTLCOLOREDIT, dialog.Child(TEST_CHILD_EDIT)) ==
              reinterpret_cast<LRESULT>(::GetSysColorBrush(COLOR_WINDOW)));
        CHECK(::GetTextColor(target.Context()) == ::GetSysColor(COLOR_WINDOWTEXT));
        CHECK(ask(WM_CTLCOLORSTATIC, dialog.Child(TEST_CHILD_LABEL)) ==
              reinterpret_cast<LRESULT>(::GetSysColorBrush(COLOR_BTNFACE)));
        CHECK(ask(WM_CTLCOLORDLG, dialog.Window()) ==
              reinterpret_cast<LRESULT>(::GetStockObject(NULL_BRUSH)));
    });
}

TEST_CASE("Keyboard: Tab reaches and leaves every control", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        const auto next = [&](HWND from) {
            return ::GetDlgCtrlID(::GetNextDlgTabItem(dialog.Window(), from, FALSE));
        };
        CHECK(::GetDlgCtrlID(::GetFocus()) == TEST_CHILD_EDIT);
        CHECK(next(dialog.Child(TEST_CHILD_EDIT)) == TEST_CHILD_RADIO);
        CHECK(next(dialog.Child(TEST_CHILD_RADIO)) == TEST_CHILD_BUTTON);
        CHECK(next(dialog.Child(TEST_CHILD_BUTTON)) == TEST_CHILD_EDIT);
    });
}

TEST_CASE("Others: a message that the frame does not know is the system's", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        CHECK_FALSE(dialog.ProcessMessage(WM_USER + 77, 1, 2));
        CHECK(LOWORD(::SendMessageW(dialog.Window(), DM_SETDEFID, TEST_CHILD_BUTTON, 0)) != 0);
        CHECK(LOWORD(::SendMessageW(dialog.Window(), DM_GETDEFID, 0, 0)) == TEST_CHILD_BUTTON);
    });
}
