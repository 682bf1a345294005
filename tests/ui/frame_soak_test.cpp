#include "tests/support/gui_usage.h"
#include "tests/support/process_usage.h"
#include "tests/ui/test_dialog.h"
#include "ui/halden_style_button.h"

#include <catch.hpp>

using namespace velt::test;

namespace
{
/// What may come and go between two measurements without a leak.
constexpr std::size_t kSlackBytes = 256 * 1024;

struct Usage
{
    ProcessUsage process = CurrentUsage();
    GuiUsage gui = CurrentGuiUsage();
};

/// `keptGdiObjects` are those that the system keeps, and of a twentieth as many windows it may: the
/// tooltips that come where a machine is slow.
void CheckNoGrowth(const Usage& before, const Usage& after, std::size_t keptGdiObjects)
{
    CHECK(after.gui.gdiObjects >= before.gui.gdiObjects + keptGdiObjects);
    CHECK(after.gui.gdiObjects <= before.gui.gdiObjects + keptGdiObjects + keptGdiObjects / 20);
    CHECK(after.gui.windows == before.gui.windows);
    CHECK(after.process.handles == before.process.handles);
    CHECK(after.process.heapBytes <= before.process.heapBytes + 4096 + UncertainHeapBytes());
    CHECK(after.process.privateBytes <= before.process.privateBytes + kSlackBytes);
    CHECK(before.gui.gdiObjects > 0);
    CHECK(before.process.handles > 0);
    CHECK(AreHeapsValid());
}

/// One dialog's whole life: shown, painted, its button pressed, closed.
void ShowOne()
{
    TestDialog dialog(TEST_DIALOG);
    CHaldenStyleButton button(TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED);
    button.SetTooltipText(L"What it does");
    dialog.Show([&] {
        const HWND window = dialog.Child(TEST_CHILD_BUTTON);
        button.SubclassWindow(window);
        ::RedrawWindow(dialog.Window(), nullptr, nullptr,
                       RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
        ::SendMessageW(window, WM_MOUSEMOVE, 0, MAKELPARAM(5, 5));
        ::SendMessageW(window, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(5, 5));
        ::SendMessageW(window, WM_LBUTTONUP, 0, MAKELPARAM(5, 5));
        dialog.Resize(300, 200);
    });
    if (dialog.Got(WM_COMMAND).empty())
    {
        FAIL("not clicked");
    }
}

void Resize(const TestDialog& dialog, int count)
{
    for (int i = 0; i < count; ++i)
    {
        dialog.Resize(200 + i % 50, 150 + i % 30);
    }
}
} // namespace

TEST_CASE("Soak: 1,000 resizes leave nothing behind", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        Resize(dialog, 100); // what is made once is there now
        dialog.Forget();
        dialog.messages.reserve(100'000);
        const Usage before;
        Resize(dialog, 1000);
        const Usage after;
        CheckNoGrowth(before, after, 0);
        CHECK(dialog.Got(WM_SIZE).size() == 1000);
    });
}

TEST_CASE("Soak: 1,000 dialogs leave nothing behind", "[ui]")
{
    constexpr std::size_t kDialogs = 1000;
    const std::size_t keptOfEach = GdiObjectsKeptOfShapedWindow();
    if (keptOfEach > 0)
    {
        WARN("this system keeps a drawing object of each shown window that has a region");
    }
    for (int i = 0; i < 50; ++i)
    {
        ShowOne();
    }
    const Usage before;
    for (std::size_t i = 0; i < kDialogs; ++i)
    {
        ShowOne();
    }
    const Usage after;
    CheckNoGrowth(before, after, kDialogs * keptOfEach);
}
