#include "ui/window_subclass.h"

#include "foundation/unique_handle.h"
#include "tests/support/import_patch.h"
#include "ui/gdi_handles.h"

#include <windows.h>

#include <catch.hpp>

namespace
{
using velt::WindowSubclass;
using velt::test::ImportPatch;

constexpr UINT kQuestion = WM_APP + 1;
constexpr LRESULT kOurs = 77;

velt::UniqueWindow MakeWindow()
{
    velt::UniqueWindow window(::CreateWindowExW(0, L"STATIC", L"text", 0, 0, 0, 10, 10, nullptr,
                                                nullptr, nullptr, nullptr));
    REQUIRE(window);
    return window;
}

WNDPROC ProcedureOf(HWND window)
{
    return reinterpret_cast<WNDPROC>(::GetWindowLongPtrW(window, GWLP_WNDPROC));
}

/// Answers the question itself and hands everything else on.
struct Owner
{
    static LRESULT Handle(void* owner, UINT message, WPARAM wParam, LPARAM lParam) noexcept
    {
        WindowSubclass& subclass = static_cast<Owner*>(owner)->subclass;
        const HWND window = subclass.Window();
        const WNDPROC original = subclass.Original();
        if (message == kQuestion)
        {
            return kOurs;
        }
        if (message == WM_NCDESTROY)
        {
            subclass.Detach();
        }
        return ::CallWindowProcW(original, window, message, wParam, lParam);
    }

    bool Attach(HWND window)
    {
        return subclass.Attach(window, &Owner::Handle, this);
    }

    WindowSubclass subclass;
};

WNDPROC g_below = nullptr;

LRESULT CALLBACK OnTop(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    return ::CallWindowProcW(g_below, window, message, wParam, lParam);
}
} // namespace

TEST_CASE("WindowSubclass: messages come to the owner first, then to the window", "[ui]")
{
    const velt::UniqueWindow window = MakeWindow();
    const WNDPROC before = ProcedureOf(window.Get());
    Owner owner;
    CHECK(owner.subclass.Window() == nullptr);
    CHECK(owner.subclass.Original() == &::DefWindowProcW);
    REQUIRE(owner.Attach(window.Get()));
    CHECK(owner.subclass.Window() == window.Get());
    CHECK(owner.subclass.Original() == before);
    CHECK(::SendMessageW(window.Get(), kQuestion, 0, 0) == kOurs);
    CHECK(::GetWindowTextLengthW(window.Get()) == 4);
}

TEST_CASE("WindowSubclass: the window gets its procedure back", "[ui]")
{
    const velt::UniqueWindow window = MakeWindow();
    const WNDPROC before = ProcedureOf(window.Get());
    {
        Owner owner;
        REQUIRE(owner.Attach(window.Get()));
        SECTION("from Detach")
        {
            owner.subclass.Detach();
            CHECK(owner.subclass.Window() == nullptr);
            CHECK(ProcedureOf(window.Get()) == before);
            owner.subclass.Detach(); // nothing more
            CHECK(owner.Attach(window.Get()));
        }
        SECTION("from the destructor") {}
    }
    CHECK(ProcedureOf(window.Get()) == before);
    CHECK(::SendMessageW(window.Get(), kQuestion, 0, 0) == 0);
    Owner next;
    CHECK(next.Attach(window.Get()));
}

TEST_CASE("WindowSubclass: one object takes one window, and a window is taken once", "[ui]")
{
    const velt::UniqueWindow window = MakeWindow();
    const velt::UniqueWindow other = MakeWindow();
    Owner owner;
    CHECK_FALSE(owner.Attach(nullptr));
    CHECK_FALSE(owner.Attach(::GetDesktopWindow())); // another process's
    CHECK(owner.subclass.Window() == nullptr);
    REQUIRE(owner.Attach(window.Get()));
    CHECK_FALSE(owner.Attach(other.Get()));
    Owner second;
    CHECK_FALSE(second.Attach(window.Get()));
    CHECK(::SendMessageW(window.Get(), kQuestion, 0, 0) == kOurs);
}

TEST_CASE("WindowSubclass: what cannot be attached leaves the window and the object as they were",
          "[ui]")
{
    const velt::UniqueWindow window = MakeWindow();
    const WNDPROC before = ProcedureOf(window.Get());
    Owner owner;
    const int refused = GENERATE(1, 2); // which of the two properties
    {
        int calls = 0;
        const ImportPatch<"SetPropW", decltype(::SetPropW)> failing(
            "user32.dll", [&](HWND target, LPCWSTR name, HANDLE data) {
                return ++calls == refused ? FALSE
                                          : ImportPatch<"SetPropW", decltype(::SetPropW)>::Original(
                                                target, name, data);
            });
        CHECK_FALSE(owner.Attach(window.Get()));
    }
    CHECK(owner.subclass.Window() == nullptr);
    CHECK(owner.subclass.Original() == &::DefWindowProcW);
    CHECK(ProcedureOf(window.Get()) == before);
    CHECK(owner.Attach(window.Get())); // nothing is in the way
}

TEST_CASE("WindowSubclass: under another procedure it passes everything on afterwards", "[ui]")
{
    velt::UniqueWindow window = MakeWindow();
    {
        Owner owner;
        REQUIRE(owner.Attach(window.Get()));
        g_below = ProcedureOf(window.Get());
        ::SetWindowLongPtrW(window.Get(), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&OnTop));
        CHECK(::SendMessageW(window.Get(), kQuestion, 0, 0) == kOurs);
    }
    CHECK(ProcedureOf(window.Get()) == &OnTop);
    CHECK(::SendMessageW(window.Get(), kQuestion, 0, 0) == 0);
    CHECK(::GetWindowTextLengthW(window.Get()) == 4);
    Owner next;
    CHECK_FALSE(next.Attach(window.Get())); // ours is still in the chain
}

TEST_CASE("WindowSubclass: a window that is destroyed leaves the object free", "[ui]")
{
    Owner owner;
    {
        const velt::UniqueWindow window = MakeWindow();
        REQUIRE(owner.Attach(window.Get()));
    }
    CHECK(owner.subclass.Window() == nullptr);
    CHECK(owner.subclass.Original() == &::DefWindowProcW);
    const velt::UniqueWindow next = MakeWindow();
    CHECK(owner.Attach(next.Get()));
    CHECK(::SendMessageW(next.Get(), kQuestion, 0, 0) == kOurs);
}
