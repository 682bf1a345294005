#include "tools/trace/number_list.h"
#include "tools/trace/numbered_name.h"

#include <catch.hpp>

#include <climits>
#include <string>
#include <vector>

using namespace velt;

TEST_CASE("FormatNumbers: what was written is read again, and nothing else is", "[tools]")
{
    const std::vector<int> numbers{-1, 0, INT_MAX, INT_MIN};
    CHECK(FormatNumbers(numbers) == "-1 0 2147483647 -2147483648");
    CHECK(ParseNumbers(FormatNumbers(numbers), 4) == numbers);
    CHECK(FormatNumbers({}).empty());
    const std::string text = GENERATE(as<std::string>(), "", "1", "1 ", " 1 2", "1  2", "1 2 ",
                                      "1 2 3", "1 x", "1,2", "1 99999999999", "+1 2");
    CAPTURE(text);
    CHECK_FALSE(ParseNumbers(text, 2));
}

TEST_CASE("IsOrder: each place once", "[tools]")
{
    CHECK(IsOrder(std::vector<int>{2, 0, 1}));
    CHECK(IsOrder(std::vector<int>{}));
    CHECK_FALSE(IsOrder(std::vector<int>{0, 0, 1}));
    CHECK_FALSE(IsOrder(std::vector<int>{1, 2, 3}));
    CHECK_FALSE(IsOrder(std::vector<int>{-1, 0, 1}));
}

TEST_CASE("NumberedName: the number stands before the ending", "[tools]")
{
    CHECK(NumberedName("C:\\a.b\\trace.csv", 1) == "C:\\a.b\\trace.csv");
    CHECK(NumberedName("C:\\a.b\\trace.csv", 2) == "C:\\a.b\\trace.2.csv");
    CHECK(NumberedName("C:\\a.b\\trace", 3) == "C:\\a.b\\trace.3");
    CHECK(NumberedName("a/.trace", 3) == "a/.trace.3");
    CHECK(NumberedName("a.b.c", 12) == "a.b.12.c");
    CHECK(NumberedName("", 2) == ".2");
}
