#include "service/expiry_text.h"

#include <catch.hpp>

#include <limits>
#include <string>

using velt::CalendarTime;
using velt::ExpiryText;

TEST_CASE("ExpiryText: numbers are filled up with blanks, except the day", "[service]")
{
    const auto [time, text] = GENERATE(table<CalendarTime, std::string>({
        {{2007, 5, 5, 6, 9, 4, 0}, "Sat, 5-May-2007  9: 4: 0 GMT"},
        {{2026, 12, 31, 4, 23, 59, 59}, "Thu, 31-Dec-2026 23:59:59 GMT"},
        {{2000, 1, 1, 6, 0, 0, 0}, "Sat, 1-Jan-2000  0: 0: 0 GMT"},
        {{2024, 2, 29, 4, 10, 9, 10}, "Thu, 29-Feb-2024 10: 9:10 GMT"},
        {{999, 3, 10, 0, 1, 1, 1}, "Sun, 10-Mar- 999  1: 1: 1 GMT"},
    }));
    CHECK(ExpiryText(time) == text);
}

TEST_CASE("ExpiryText: every day and every month has its English name", "[service]")
{
    const std::string days = "SunMonTueWedThuFriSat";
    const std::string months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (int weekday = 0; weekday < 7; ++weekday)
    {
        for (int month = 1; month <= 12; ++month)
        {
            const std::string expected =
                days.substr(static_cast<std::size_t>(weekday) * 3, 3) + ", 1-" +
                months.substr(static_cast<std::size_t>(month - 1) * 3, 3) + "-2030  1: 2: 3 GMT";
            CHECK(ExpiryText({2030, month, 1, weekday, 1, 2, 3}) == expected);
        }
    }
}

TEST_CASE("ExpiryText: a day or month that does not exist has no text", "[service]")
{
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr int kLeast = std::numeric_limits<int>::min();
    const int wrong = GENERATE_COPY(-1, 7, 13, kMost, kLeast);
    CHECK(ExpiryText({2030, 1, 1, wrong, 0, 0, 0}).empty());
    CHECK(ExpiryText({2030, wrong == 7 ? 0 : wrong, 1, 1, 0, 0, 0}).empty());
    // Other numbers of any size are written out.
    CHECK(ExpiryText({kLeast, 1, kLeast, 1, kLeast, kLeast, kLeast}).ends_with("-2147483648 GMT"));
}

TEST_CASE("ExpiryText: a cookie lasts 183 days", "[service]")
{
    CHECK(velt::kCookieLifetimeSeconds == 15'811'200);
}
