#include "ui/halden_style_button.h"

#include "tests/ui/button_scene.h"

#include <catch.hpp>

using namespace velt::test;

TEST_CASE("CHaldenStyleButton: takes one button over, makes it owner-drawn and gives it back",
          "[ui]")
{
    ButtonScene scene(L"OK");
    scene.Show([&] {
        CHECK(scene.button.Window() == scene.window);
        CHECK((::GetWindowLongPtrW(scene.window, GWL_STYLE) & BS_OWNERDRAW) == BS_OWNERDRAW);
        CHECK_FALSE(scene.button.SubclassWindow(scene.dialog.Child(TEST_CHILD_RADIO)));
        CHECK(scene.button.Window() == scene.window);

        CHaldenStyleButton none(TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED);
        CHECK_FALSE(none.SubclassWindow(nullptr));
        CHECK(none.Window() == nullptr);
        const HWND radio = scene.dialog.Child(TEST_CHILD_RADIO);
        const LONG_PTR style = ::GetWindowLongPtrW(radio, GWL_STYLE);
        {
            CHaldenStyleButton other(TEST_FACE_NORMAL, TEST_FACE_HOT, TEST_FACE_PRESSED);
            CHECK(other.SubclassWindow(radio));
            CHECK(::SendMessageW(radio, WM_INITDIALOG, 0, 0) == 1);
        }
        CHECK(::SendMessageW(radio, WM_INITDIALOG, 0, 0) == 0);
        CHECK(::GetWindowLongPtrW(radio, GWL_STYLE) == style);
        ::DestroyWindow(scene.window);
        CHECK(scene.button.Window() == nullptr);
    });
}

TEST_CASE("CHaldenStyleButton: WM_CREATE and WM_INITDIALOG initialise it and answer 1", "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_CREATE, WM_INITDIALOG);
    ButtonScene scene;
    scene.Show([&] {
        ::SetWindowLongPtrW(scene.window, GWL_STYLE, WS_CHILD | WS_VISIBLE);
        CHECK(scene.Send(message) == 1);
        CHECK((::GetWindowLongPtrW(scene.window, GWL_STYLE) & BS_OWNERDRAW) == BS_OWNERDRAW);
    });
}
