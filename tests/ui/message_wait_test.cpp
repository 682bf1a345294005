#include "ui/message_wait.h"

#include "tests/ui/plain_window.h"

#include <catch.hpp>

using velt::test::PlainWindow;

TEST_CASE("WaitWithMessages: messages are dispatched until it is done", "[ui]")
{
    const PlainWindow dialog;
    const PlainWindow other;
    ::PostMessageW(other.Window(), WM_CLOSE, 0, 0); // which destroys it
    const auto isDone = [&] { return !::IsWindow(other.Window()); };
    CHECK_FALSE(isDone());
    CHECK(velt::WaitWithMessages(dialog.Window(), 5000, isDone));
}

TEST_CASE("WaitWithMessages: it ends at its limit, at once when it is done, without the dialog and "
          "when the thread is to quit",
          "[ui]")
{
    const PlainWindow dialog;
    const auto never = [] { return false; };
    const ULONGLONG start = ::GetTickCount64();
    CHECK_FALSE(velt::WaitWithMessages(dialog.Window(), 100, never));
    CHECK(::GetTickCount64() - start >= 100);
    CHECK(velt::WaitWithMessages(dialog.Window(), 0, [] { return true; }));
    CHECK_FALSE(velt::WaitWithMessages(nullptr, 60'000, never));

    // Something that turns true without a message.
    const ULONGLONG then = ::GetTickCount64() + 50;
    CHECK(velt::WaitWithMessages(dialog.Window(), 5000,
                                 [then] { return ::GetTickCount64() >= then; }));

    ::PostQuitMessage(9);
    CHECK_FALSE(velt::WaitWithMessages(dialog.Window(), 60'000, never));
    MSG message{};
    REQUIRE(::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    CHECK(message.message == WM_QUIT);
    CHECK(message.wParam == 9);
}
