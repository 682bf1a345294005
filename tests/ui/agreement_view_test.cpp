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
} // namespace

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
