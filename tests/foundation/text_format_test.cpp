#include "foundation/text_format.h"

#include <catch.hpp>

using velt::FormatPositional;

TEST_CASE("FormatPositional: each argument fills its own placeholder", "[foundation]")
{
    CHECK(FormatPositional("number = %0 - %1", {"5", "text"}) == "number = 5 - text");
    CHECK(FormatPositional("%0%0", {"a"}) == "aa");
    CHECK(FormatPositional("nothing", {"a"}) == "nothing");
    CHECK(FormatPositional("%0", {}) == "%0");
    CHECK(FormatPositional("", {"a"}).empty());
}

TEST_CASE("FormatPositional: an argument's own placeholders stay as they are", "[foundation]")
{
    CHECK(FormatPositional("%0, %1", {"<%1>", "b"}) == "<%1>, b");
}

TEST_CASE("FormatPositional: a placeholder before an earlier one's last insertion stays",
          "[foundation]")
{
    CHECK(FormatPositional("%1 %0", {"a", "b"}) == "%1 a");
    CHECK(FormatPositional("%0 %1 %0", {"a", "b"}) == "a %1 a");
}

TEST_CASE("FormatPositional: the search goes on behind each inserted argument", "[foundation]")
{
    const auto [text, arguments, expected] =
        GENERATE(table<std::string, std::vector<std::string>, std::string>(
            {{"%0", {"%0"}, "%0"},
             {"%0%0", {"%0"}, "%0%0"},
             {"%0%1", {"", ""}, ""},
             {"%00", {"a"}, "a0"},
             {"%%0", {"a"}, "%a"},
             {"%", {"a"}, "%"},
             {"%x %2 %", {"a", "b", "c"}, "%x c %"},
             {"%2", {"a", "b"}, "%2"},
             {"%1", {"a", "b"}, "b"},
             // Argument 1 takes the start of "%10", which was meant for argument 10.
             {"%10", {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "ten"}, "10"},
             {"%9 %10", {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "ten"}, "%9 10"}}));
    CHECK(FormatPositional(text, arguments) == expected);
}
