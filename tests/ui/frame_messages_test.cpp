#include "tests/support/high_contrast_on.h"
#include "tests/support/trace_recorder.h"
#include "tests/ui/frame_scene.h"

#include <catch.hpp>

#include <cstddef>

using namespace velt;
using namespace velt::test;

namespace
{
constexpr COLORREF kControlGrey = RGB(237, 237, 237);

COLORREF BrushColour(LRESULT brush)
{
    LOGBRUSH attributes{};
    ::GetObjectW(reinterpret_cast<HGDIOBJ>(brush), sizeof(attributes), &attributes);
    return attributes.lbStyle == BS_SOLID ? attributes.lbColor : CLR_INVALID;
}
} // namespace

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
        const HighContrastOn on;
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
