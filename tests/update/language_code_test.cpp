#include "update/language_code.h"

#include <catch.hpp>

#include <cstdint>
#include <limits>
#include <set>

using namespace velt;

namespace
{
const std::set<std::int32_t> kUnchanged = {1026, 1027, 1028, 1029, 1030, 1031, 1032, 1033, 1034,
                                           1035, 1036, 1038, 1040, 1041, 1042, 1043, 1044, 1045,
                                           1046, 1048, 1049, 1050, 1051, 1053, 1054, 1055, 1057,
                                           1060, 1069, 2052, 2070, 3084, 3098};
} // namespace

TEST_CASE("FindLanguageCode: the locales that the agent knows are their own codes", "[update]")
{
    REQUIRE(kUnchanged.size() == 33);
    for (const std::int32_t locale : kUnchanged)
    {
        CAPTURE(locale);
        CHECK(FindLanguageCode(locale) == locale);
    }
}

TEST_CASE("FindLanguageCode: modern Spanish is Spanish", "[update]")
{
    CHECK(FindLanguageCode(3082) == 1034);
}

TEST_CASE("FindLanguageCode: every other 16-bit identifier is unknown", "[update]")
{
    for (std::int32_t locale = -0x10000; locale <= 0x10000; ++locale)
    {
        const bool isKnown = kUnchanged.contains(locale) || locale == 3082;
        if (FindLanguageCode(locale).has_value() != isKnown)
        {
            FAIL("locale " << locale);
        }
    }
    const std::int32_t gap =
        GENERATE(1037, 1039, 1047, 1052, 1056, 0, 1025, std::numeric_limits<std::int32_t>::min(),
                 std::numeric_limits<std::int32_t>::max());
    CHECK_FALSE(FindLanguageCode(gap).has_value());
}

TEST_CASE("FindLanguageCode: the default is one of the agent's languages", "[update]")
{
    CHECK(kDefaultLanguageCode == 1033);
    CHECK(FindLanguageCode(kDefaultLanguageCode) == kDefaultLanguageCode);
}
