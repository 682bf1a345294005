#include "ui/agreement_view.h"

#include "ui/gdi_handles.h"

#include <windows.h>

#include <catch.hpp>

using namespace velt;

namespace
{
HWND MakeChild(HWND parent)
{
    const HWND child = ::CreateWindowExW(0, L"STATIC", L"", WS_CHILD, 0, 0, 10, 10, parent, nullptr,
                                         nullptr, nullptr);
    REQUIRE(child);
    return child;
}

constexpr LRESULT kAllKeys =
    DLGC_WANTALLKEYS | DLGC_WANTTAB | DLGC_WANTARROWS | DLGC_WANTCHARS | DLGC_HASSETSEL;

/// A control that wants to see everything of the keyboard, as rich edit controls of some versions.
LRESULT CALLBACK WantAllKeys(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return message == WM_GETDLGCODE ? kAllKeys : ::DefWindowProcW(window, message, wParam, lParam);
}
} // namespace

TEST_CASE("AgreementView: Tab leaves the control, all other keys are its own", "[ui]")
{
    const UniqueWindow parent(::CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 100, 100,
                                                nullptr, nullptr, nullptr, nullptr));
    REQUIRE(parent);
    const HWND control = MakeChild(parent.Get());
    ::SetWindowLongPtrW(control, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&WantAllKeys));
    AgreementView view;
    view.Attach(control, nullptr);
    const auto codeFor = [&](UINT message, WPARAM key) {
        MSG pressed{};
        pressed.hwnd = control;
        pressed.message = message;
        pressed.wParam = key;
        return ::SendMessageW(control, WM_GETDLGCODE, key, reinterpret_cast<LPARAM>(&pressed));
    };
    CHECK(codeFor(WM_KEYDOWN, VK_TAB) == (DLGC_WANTARROWS | DLGC_WANTCHARS));
    const LRESULT others = kAllKeys & ~LRESULT{DLGC_HASSETSEL}; // all text stays as it was
    CHECK(codeFor(WM_KEYDOWN, VK_RETURN) == others);
    CHECK(codeFor(WM_CHAR, VK_TAB) == others);
    CHECK(::SendMessageW(control, WM_GETDLGCODE, 0, 0) == others); // no key
}

TEST_CASE("AgreementView: the label comes before the control, and stays where there is none",
          "[ui]")
{
    const UniqueWindow parent(::CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 100, 100,
                                                nullptr, nullptr, nullptr, nullptr));
    REQUIRE(parent);
    const HWND first = MakeChild(parent.Get());
    const HWND control = MakeChild(parent.Get());
    const HWND label = MakeChild(parent.Get());
    const auto isInOrder = [&](HWND a, HWND b, HWND c) {
        return ::GetWindow(parent.Get(), GW_CHILD) == a && ::GetWindow(a, GW_HWNDNEXT) == b &&
               ::GetWindow(b, GW_HWNDNEXT) == c && ::GetWindow(c, GW_HWNDNEXT) == nullptr;
    };
    REQUIRE(isInOrder(first, control, label));
    AgreementView view;
    view.Attach(nullptr, label);
    CHECK(isInOrder(first, control, label));
    view.Attach(control, nullptr);
    CHECK(isInOrder(first, control, label));
    view.Attach(control, label); // once more
    CHECK(isInOrder(first, control, label));
    AgreementView other;
    other.Attach(first, label);
    CHECK(isInOrder(label, first, control));
}
