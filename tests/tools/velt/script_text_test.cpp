#include "tools/velt/script_text.h"

#include <catch.hpp>

#include <string>

using namespace std::string_literals;
using velt::tool::DecodeScript;

TEST_CASE("DecodeScript: UTF-8 with and without a mark", "[tools]")
{
    CHECK(DecodeScript("").empty());
    CHECK(DecodeScript("a\xC3\xA4") == u"a\u00E4");
    CHECK(DecodeScript("\xEF\xBB\xBF"
                       "a") == u"a");
    CHECK(DecodeScript("\xEF\xBB") == u"\uFFFD\uFFFD");
}

TEST_CASE("DecodeScript: UTF-16 by its mark", "[tools]")
{
    CHECK(DecodeScript("\xFF\xFE"s + "a\0\xE4\0"s) == u"a\u00E4");
    CHECK(DecodeScript("\xFE\xFF"s + "\0a\0\xE4"s) == u"a\u00E4");
    CHECK(DecodeScript("\xFF\xFE").empty());
    CHECK(DecodeScript("\xFF\xFE"s + "a\0b"s) == u"a"); // an odd last byte
    CHECK(DecodeScript("\xFF\xFE"s + "\0\xD8"s) == u"\uFFFD");
}
