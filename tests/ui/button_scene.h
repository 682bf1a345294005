#pragma once

#include "tests/ui/pixels.h"
#include "tests/ui/reference_skin.h"
#include "tests/ui/test_dialog.h"
#include "ui/halden_style_button.h"

#include <windows.h>

#include <catch.hpp>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace velt::test
{
inline constexpr COLORREF kBlack = RGB(0, 0, 0);

/// A dialog that is shown with its button taken over. One at a time.
struct ButtonScene
{
    explicit ButtonScene(std::wstring buttonText = L"") : text(std::move(buttonText)) {}

    template <class Body>
    void Show(Body body)
    {
        dialog.Show([&] {
            window = dialog.Child(TEST_CHILD_BUTTON);
            ::SetWindowTextW(window, text.c_str());
            ::SetWindowPos(window, nullptr, 100, 60, 80, 30, SWP_NOZORDER);
            ::SetFocus(dialog.Child(TEST_CHILD_EDIT));
            ::SetCursorPos(5, 5); // away from the button
            s_shown = this;
            m_original = reinterpret_cast<WNDPROC>(::SetWindowLongPtrW(
                window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&ButtonScene::Below)));
            REQUIRE(button.SubclassWindow(window));
            ::UpdateWindow(dialog.Window());
            ::UpdateWindow(window);
            TestDialog::Pump();
            dialog.Forget();
            passedOn.clear();
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
    std::vector<TestDialog::Message> passedOn; // to the procedure that the window had
    std::function<void(UINT)> onPassedOn;

private:
    static LRESULT CALLBACK Below(HWND button, UINT message, WPARAM wParam, LPARAM lParam)
    {
        ButtonScene& scene = *s_shown;
        scene.passedOn.push_back({message, wParam, lParam});
        if (scene.onPassedOn)
        {
            scene.onPassedOn(message);
        }
        return ::CallWindowProcW(scene.m_original, button, message, wParam, lParam);
    }

    inline static ButtonScene* s_shown = nullptr;

    WNDPROC m_original = nullptr;
};

inline constexpr LPARAM kInside = MAKELPARAM(40, 15);
inline constexpr LPARAM kOutside = MAKELPARAM(200, 15);

/// A face on the scene's button, on black ground.
inline Pixels ExpectedFace(UINT id)
{
    return ReferenceFace(Pixels::OfResource(id), 80, 30);
}
} // namespace velt::test
