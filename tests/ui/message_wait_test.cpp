#include "ui/message_wait.h"

#include "tests/ui/plain_window.h"

#include <catch.hpp>

using velt::WaitEnd;
using velt::test::PlainWindow;

TEST_CASE("WaitWithMessages: messages are dispatched until it is done", "[ui]")
{
    const PlainWindow dialog;
    const PlainWindow other;
    ::PostMessageW(other.Window(), WM_CLOSE, 0, 0); // which destroys it
    const auto isDone = [&] { return !::IsWindow(other.Window()); };
    CHECK_FALSE(isDone());
    CHECK(velt::WaitWithMessages(dialog.Window(), 60'000, isDone) == WaitEnd::kDone);
}

TEST_CASE("WaitWithMessages: it ends at its limit, at once when it is done, without the dialog and "
          "when the thread is to quit",
          "[ui]")
{
    const PlainWindow dialog;
    const auto never = [] { return false; };
    const ULONGLONG start = ::GetTickCount64();
    CHECK(velt::WaitWithMessages(dialog.Window(), 100, never) == WaitEnd::kTimeOver);
    CHECK(::GetTickCount64() - start >= 100);
    CHECK(velt::WaitWithMessages(dialog.Window(), 0, [] { return true; }) == WaitEnd::kDone);
    CHECK(velt::WaitWithMessages(nullptr, 60'000, never) == WaitEnd::kGivenUp);

    // Something that turns true without a message.
    const ULONGLONG then = ::GetTickCount64() + 50;
    CHECK(velt::WaitWithMessages(dialog.Window(), 60'000,
                                 [then] { return ::GetTickCount64() >= then; }) == WaitEnd::kDone);

    ::PostQuitMessage(9);
    CHECK(velt::WaitWithMessages(dialog.Window(), 60'000, never) == WaitEnd::kGivenUp);
    MSG message{};
    REQUIRE(::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    CHECK(message.message == WM_QUIT);
    CHECK(message.wParam == 9);
}
