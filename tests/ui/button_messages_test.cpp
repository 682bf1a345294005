#include "tests/support/import_patch.h"
#include "tests/ui/button_scene.h"

#include <commctrl.h>

#include <catch.hpp>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace velt;
using namespace velt::test;

namespace
{
/// A window and its button, which both end, with the button's object, within the first message of
/// a kind that comes to either. Whatever touches the object afterwards ends the program.
struct Doomed
{
    explicit Doomed(UINT message)
        : memory(::VirtualAlloc(nullptr, sizeof(CHaldenStyleButton), MEM_COMMIT, PAGE_READWRITE)),
          ending(message)
    {
        s_current = this;
        parent.Reset(::CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0, 200, 100,
                                       nullptr, nullptr, nullptr, nullptr));
        const HWND window = ::CreateWindowExW(0, L"BUTTON", L"", WS_CHILD | WS_VISIBLE, 10, 10, 80,
                                              30, parent.Get(), nullptr, nullptr, nullptr);
        REQUIRE(window);
        parentProcedure = Replace(parent.Get());
        buttonProcedure = Replace(window);
        button =
            new (memory) CHaldenStyleButton(TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED);
        REQUIRE(button->SubclassWindow(window));
    }

    Doomed(const Doomed&) = delete;
    Doomed& operator=(const Doomed&) = delete;

    ~Doomed()
    {
        ::VirtualFree(memory, 0, MEM_RELEASE);
    }

    void End()
    {
        parent.Reset();
        std::destroy_at(std::exchange(button, nullptr));
        DWORD old = 0;
        ::VirtualProtect(memory, sizeof(CHaldenStyleButton), PAGE_NOACCESS, &old);
    }

    static WNDPROC Replace(HWND window)
    {
        return reinterpret_cast<WNDPROC>(
            ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Below)));
    }

    static LRESULT CALLBACK Below(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        Doomed& self = *s_current;
        const WNDPROC original =
            window == self.parent.Get() ? self.parentProcedure : self.buttonProcedure;
        if (message == self.ending && self.button)
        {
            self.End();
            return 0;
        }
        return ::CallWindowProcW(original, window, message, wParam, lParam);
    }

    inline static Doomed* s_current = nullptr;

    void* memory;
    UINT ending;
    UniqueWindow parent;
    WNDPROC parentProcedure = nullptr;
    WNDPROC buttonProcedure = nullptr;
    CHaldenStyleButton* button = nullptr;
};
} // namespace

TEST_CASE("Press: captured, shown, set as pushed and forwarded with the parent's point", "[ui]")
{
    ButtonScene scene;
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
    ButtonScene scene;
    scene.Show([&] {
        const ImportPatch<"SetCapture", decltype(::SetCapture)> failing(
            "user32.dll", [](HWND) { return static_cast<HWND>(nullptr); });
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        CHECK(scene.Face() == TEST_FACE_NORMAL);
        CHECK(scene.dialog.Got(WM_LBUTTONDOWN).size() == 1);
    });
}

TEST_CASE("Press: while captured, pressed is exactly what the button's window covers", "[ui]")
{
    ButtonScene scene; // 80 x 30
    scene.Show([&] {
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        const struct
        {
            int x;
            int y;
            bool isInside;
        } rows[] = {{0, 0, true},    {-1, 0, false}, {0, -1, false},  {79, 0, true},
                    {80, 0, false},  {79, 29, true}, {79, 30, false}, {80, 29, false},
                    {0, 29, true},   {0, 30, false}, {-1, 29, false}, {40, 15, true},
                    {79, -1, false}, {-1, -1, false}};
        for (const auto& row : rows)
        {
            CAPTURE(row.x, row.y);
            scene.Send(WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(row.x, row.y));
            CHECK(scene.Face() == (row.isInside ? TEST_FACE_PRESSED : TEST_FACE_NORMAL));
        }
        ::ReleaseCapture();
    });
}

TEST_CASE("Release: the parent gets its command while the button still has the capture", "[ui]")
{
    std::vector<HWND> captures; // outlives the dialog, whose end brings messages too
    ButtonScene scene;
    scene.Show([&] {
        scene.dialog.onMessage = [&](const TestDialog::Message& got) {
            if (got.message == WM_COMMAND || got.message == WM_LBUTTONUP)
            {
                captures.push_back(::GetCapture());
            }
        };
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(captures == std::vector<HWND>{scene.window, nullptr});
    });
}

TEST_CASE("Release: inside brings one command, and the capture ends", "[ui]")
{
    ButtonScene scene;
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
    ButtonScene scene;
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
    ButtonScene scene;
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
    ButtonScene scene;
    scene.Show([&] {
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.Commands().empty());
        CHECK(scene.dialog.Got(WM_LBUTTONUP).size() == 1);
    });
}

TEST_CASE("Press, release: what they bring about may end the dialog, the button and its object",
          "[ui]")
{
    const UINT ending = GENERATE(as<UINT>(), BM_SETSTATE, WM_LBUTTONDOWN, WM_COMMAND);
    Doomed doomed(ending);
    using InvalidatePatch = ImportPatch<"InvalidateRect", decltype(::InvalidateRect)>;
    bool isEachOfAWindow = true;
    const InvalidatePatch invalidate("user32.dll", [&](HWND window, const RECT* area, BOOL erase) {
        isEachOfAWindow = isEachOfAWindow && window;
        return InvalidatePatch::Original(window, area, erase);
    });
    const HWND window = doomed.button->Window();
    ::SendMessageW(window, WM_LBUTTONDOWN, MK_LBUTTON, kInside);
    CHECK((ending == WM_COMMAND) == (::IsWindow(window) != FALSE));
    ::SendMessageW(window, WM_LBUTTONUP, 0, kInside);
    CHECK_FALSE(::IsWindow(window));
    CHECK(doomed.button == nullptr);
    CHECK(::GetCapture() == nullptr);
    CHECK(isEachOfAWindow); // null would be all windows of the screen
}

TEST_CASE("WM_LBUTTONDBLCLK, WM_MOUSEMOVE: painting may destroy the button", "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_LBUTTONDBLCLK, WM_MOUSEMOVE);
    ButtonScene scene;
    scene.Show([&] {
        using TrackPatch = ImportPatch<"_TrackMouseEvent", decltype(::_TrackMouseEvent)>;
        HWND tracked = nullptr;
        const TrackPatch track("comctl32.dll", [&](TRACKMOUSEEVENT* event) {
            tracked = event->hwndTrack;
            return TRUE;
        });
        scene.dialog.onMessage = [&](const TestDialog::Message& got) {
            if (got.message == WM_CTLCOLORSTATIC)
            {
                ::DestroyWindow(scene.window);
            }
        };
        scene.Send(message, 0, MAKELPARAM(3, 4));
        CHECK(scene.button.Window() == nullptr);
        if (message == WM_LBUTTONDBLCLK)
        {
            CHECK(scene.dialog.Got(message) ==
                  std::vector<TestDialog::Message>{{message, 0, scene.InDialog(3, 4)}});
        }
        else
        {
            CHECK(tracked == scene.window);
        }
    });
}

TEST_CASE("Double click: the pressed face, no capture, no command; forwarded", "[ui]")
{
    ButtonScene scene;
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
    ButtonScene scene;
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
    ButtonScene scene;
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
    ButtonScene scene;
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
    ButtonScene scene;
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

TEST_CASE("Messages: which the button's own procedure gets as well", "[ui]")
{
    // With a tooltip and without, which mouse messages go to in passing.
    const bool hasTooltip = GENERATE(false, true);
    ButtonScene scene;
    if (hasTooltip)
    {
        scene.button.SetTooltipText(L"What it does");
    }
    scene.Show([&] {
        const Pixels target(80, 30);
        const auto context = reinterpret_cast<WPARAM>(target.Context());
        const struct
        {
            UINT message;
            WPARAM wParam;
            bool isPassedOn;
        } rows[] = {
            {WM_CREATE, 0, false},
            {WM_INITDIALOG, 0, false},
            {WM_PAINT, 0, false},
            {WM_PRINTCLIENT, context, false},
            {WM_LBUTTONDOWN, MK_LBUTTON, false},
            {WM_LBUTTONUP, 0, false},
            {WM_LBUTTONDBLCLK, MK_LBUTTON, false},
            {WM_CAPTURECHANGED, 0, true},
            {WM_MOUSEMOVE, 0, true},
            {WM_MOUSELEAVE, 0, false},
            {WM_SETFOCUS, 0, true},
            {WM_KILLFOCUS, 0, true},
            {WM_RBUTTONDOWN, MK_RBUTTON, true},
            {WM_RBUTTONUP, 0, true},
            {WM_RBUTTONDBLCLK, MK_RBUTTON, true},
            {WM_MBUTTONDOWN, MK_MBUTTON, true},
            {WM_MBUTTONUP, 0, true},
            {WM_MBUTTONDBLCLK, MK_MBUTTON, true},
            {WM_MOUSEWHEEL, 0, true},
            {WM_GETDLGCODE, 0, true},
            {WM_APP, 5, true},
        };
        for (const auto& [message, wParam, isPassedOn] : rows)
        {
            CAPTURE(message);
            scene.passedOn.clear();
            const LPARAM point = message >= WM_MOUSEFIRST && message <= WM_MOUSELAST ? kInside : 0;
            scene.Send(message, wParam, point);
            const TestDialog::Message sent{message, wParam, point};
            CHECK(std::count(scene.passedOn.begin(), scene.passedOn.end(), sent) ==
                  (isPassedOn ? 1 : 0));
        }
    });
}

TEST_CASE("Press: captures, sets the state, shows it and forwards it, in this order", "[ui]")
{
    ButtonScene scene;
    scene.Show([&] {
        std::vector<std::string> steps;
        scene.onPassedOn = [&](UINT message) {
            if (message == BM_SETSTATE)
            {
                steps.push_back(::GetCapture() == scene.window ? "captured, state" : "state");
            }
        };
        using InvalidatePatch = ImportPatch<"InvalidateRect", decltype(::InvalidateRect)>;
        const InvalidatePatch invalidate("user32.dll",
                                         [&](HWND window, const RECT* area, BOOL erase) {
                                             steps.emplace_back("shown");
                                             return InvalidatePatch::Original(window, area, erase);
                                         });
        scene.dialog.onMessage = [&](const TestDialog::Message& got) {
            if (got.message == WM_LBUTTONDOWN)
            {
                steps.emplace_back("forwarded");
            }
        };
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        CHECK(steps == std::vector<std::string>{"captured, state", "shown", "forwarded"});
        CHECK(std::count(scene.passedOn.begin(), scene.passedOn.end(),
                         TestDialog::Message{BM_SETSTATE, TRUE, 0}) == 1);
        ::ReleaseCapture();
    });
}
