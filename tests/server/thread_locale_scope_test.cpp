#include "server/thread_locale_scope.h"

#include "tests/support/thread_group.h"

#include <stdexcept>

#include <catch.hpp>

using velt::ThreadLocaleScope;

TEST_CASE("ThreadLocaleScope: sets the thread's locale and gives its own back", "[server]")
{
    LCID inside = 0;
    LCID after = 0;
    LCID afterThrow = 0;
    velt::test::RunOnNewThread([&] {
        ::SetThreadLocale(0x0407);
        {
            const ThreadLocaleScope scope(LOCALE_SYSTEM_DEFAULT);
            inside = ::GetThreadLocale();
        }
        after = ::GetThreadLocale();
        try
        {
            const ThreadLocaleScope scope(0x0411);
            throw std::runtime_error("any");
        }
        catch (const std::runtime_error&)
        {
            afterThrow = ::GetThreadLocale();
        }
    });
    CHECK(inside == ::GetSystemDefaultLCID());
    CHECK(after == 0x0407);
    CHECK(afterThrow == 0x0407);
}
