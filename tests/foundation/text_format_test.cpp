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
