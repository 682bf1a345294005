#include "foundation/language_file.h"

#include "tests/support/well_formed_utf8.h"

#include <catch.hpp>

#include <cstdint>
#include <string>
#include <string_view>

using namespace std::string_literals;
using velt::ParseLanguageFile;
using velt::Translations;

namespace
{
enum class Order
{
    Little,
    Big
};

std::string Utf16Bytes(std::u16string_view text, Order order)
{
    std::string bytes;
    for (const char16_t unit : text)
    {
        const auto low = static_cast<char>(unit & 0xFF);
        const auto high = static_cast<char>(unit >> 8);
        bytes += order == Order::Little ? low : high;
        bytes += order == Order::Little ? high : low;
    }
    return bytes;
}

/// A language file in UTF-8 with its mark, which most tests here use because it can be read.
Translations Parse(const std::string& text)
{
    return ParseLanguageFile("\xEF\xBB\xBF" + text);
}
} // namespace

TEST_CASE("ParseLanguageFile: a file in any of its encodings gives the same texts", "[foundation]")
{
    const std::u16string text = u"12 Gr\xFC\xDF"
                                u"e\r\n-12 \x4E2D\x6587\r\n0x20 \xD83D\xDE00 ok\r\n";
    const Translations expected = {{12, "Gr\xC3\xBC\xC3\x9F"
                                        "e"},
                                   {-12, "\xE4\xB8\xAD\xE6\x96\x87"},
                                   {32, "\xF0\x9F\x98\x80 ok"}};

    CHECK(ParseLanguageFile("\xFF\xFE" + Utf16Bytes(text, Order::Little)) == expected);
    CHECK(ParseLanguageFile("\xFE\xFF" + Utf16Bytes(text, Order::Big)) == expected);
    CHECK(Parse("12 Gr\xC3\xBC\xC3\x9F"
                "e\r\n-12 \xE4\xB8\xAD\xE6\x96\x87\r\n0x20 \xF0\x9F\x98\x80 ok\r\n") == expected);
}

TEST_CASE("ParseLanguageFile: without a mark the first two bytes are dropped whatever they are",
          "[foundation]")
{
    const std::string first =
        GENERATE("\xFF\xFE"s, "\0\0"s, "ab"s, "\xEF\xBB"s, "7\0"s, "\xFF\xFF"s, "\xFE\xFE"s);
    CHECK(ParseLanguageFile(first + Utf16Bytes(u"5 five\n", Order::Little)) ==
          Translations{{5, "five"}});
}

TEST_CASE("ParseLanguageFile: the UTF-8 mark needs all of its three bytes", "[foundation]")
{
    // Without the third one it is UTF-16: "\xEF\xBB" goes, and "5 five" is three odd characters.
    CHECK(ParseLanguageFile("\xEF\xBB"
                            "5 five")
              .empty());
    // A mark in the middle is a character, so the line has no id at its start.
    CHECK(Parse("\xEF\xBB\xBF"
                "5 five")
              .empty());
}

TEST_CASE("ParseLanguageFile: files of 0 to 3 bytes hold nothing", "[foundation]")
{
    const std::string bytes = GENERATE(""s, "\xFF"s, "\xEF"s, "5"s, "\xFF\xFE"s, "\xFE\xFF"s,
                                       "\xEF\xBB"s, "\xEF\xBB\xBF"s, "\xFF\xFE\n"s, "\xFE\xFF;"s);
    CHECK(ParseLanguageFile(bytes).empty());
}

TEST_CASE("ParseLanguageFile: a last byte without a partner is a unit of its own", "[foundation]")
{
    SECTION("little-endian")
    {
        const std::string bytes = "\xFF\xFE" + Utf16Bytes(u"5 fiv", Order::Little) + "e";
        CHECK(ParseLanguageFile(bytes) == Translations{{5, "five"}});
    }
    SECTION("big-endian, where it is not swapped")
    {
        const std::string bytes = "\xFE\xFF" + Utf16Bytes(u"5 fiv", Order::Big) + "e";
        CHECK(ParseLanguageFile(bytes) == Translations{{5, "five"}});
    }
    SECTION("as the whole text")
    {
        CHECK(ParseLanguageFile("\xFF\xFE"
                                "5") == Translations{{5, ""}});
    }
    SECTION("after a high surrogate, which stays alone")
    {
        const std::string bytes = "\xFF\xFE" + Utf16Bytes(u"5 \xD83D", Order::Little) + "e";
        CHECK(ParseLanguageFile(bytes) == Translations{{5, "\xEF\xBF\xBD"
                                                           "e"}});
    }
}

TEST_CASE("ParseLanguageFile: bytes that are not UTF-8 never reach a text", "[foundation]")
{
    const Translations texts = Parse("5 a\xFFz\n6 \xED\xA0\x80\n7 \xC3\n");
    CHECK(texts == Translations{{5, "a\xEF\xBF\xBDz"},
                                {6, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
                                {7, "\xEF\xBF\xBD"}});
    for (const auto& [id, text] : texts)
    {
        CHECK(velt::test::IsWellFormedUtf8(text));
    }
}

TEST_CASE("ParseLanguageFile: an id is decimal, or hexadecimal after 0x", "[foundation]")
{
    const auto [line, id] =
        GENERATE(table<std::string, std::int32_t>({{"12 t", 12},
                                                   {"+12 t", 12},
                                                   {"-12 t", -12},
                                                   {"0012 t", 12},
                                                   {"0x0C t", 12},
                                                   {"0x0c t", 12},
                                                   {"-0x0C t", -12},
                                                   {"+0x0C t", 12},
                                                   {"0xC\tt", 12},
                                                   {"2147483647 t", 2147483647},
                                                   {"-2147483648 t", -2147483647 - 1},
                                                   {"0x7FFFFFFF t", 2147483647},
                                                   {"-0x80000000 t", -2147483647 - 1}}));
    CHECK(Parse(line) == Translations{{id, "t"}});
}

TEST_CASE("ParseLanguageFile: a line without an id is skipped alone", "[foundation]")
{
    const std::string line =
        GENERATE("t"s, " 12 t"s, "\t12 t"s, "0 t"s, "-0 t"s, "0x0 t"s, "0x t"s, "0xg t"s, "x12 t"s,
                 "- 12 t"s, "--12 t"s, "+-12 t"s, "0x-12 t"s, "2147483648 t"s, "-2147483649 t"s,
                 "4294967308 t"s, "18446744073709551628 t"s, "0x80000000 t"s, "0xFFFFFFF4 t"s,
                 "0x10000000C t"s, "-0x80000001 t"s, "99999999999x12 t"s, "0X0C t"s, "-"s, "0x"s,
                 ";12 t"s, "#12 t"s, "; 12 t"s, "\v12 t"s);
    INFO(line);
    CHECK(Parse(line).empty());
    CHECK(Parse("1 one\n" + line + "\n2 two") == Translations{{1, "one"}, {2, "two"}});
}

TEST_CASE("ParseLanguageFile: the blanks after the id and the white space at the end go",
          "[foundation]")
{
    const auto [line, text] =
        GENERATE(table<std::string, std::string>({{"12 Hello  ", "Hello"},
                                                  {"12 \t Hello", "Hello"},
                                                  {"12Hello", "Hello"},
                                                  {"12 Hello \t\v\f ", "Hello"},
                                                  {"12 a  b", "a  b"},
                                                  {"12 \vHello", "\vHello"},
                                                  {"12 ; no comment", "; no comment"},
                                                  {"12 # no comment", "# no comment"},
                                                  {"12 13 fourteen", "13 fourteen"},
                                                  {"12 x", "x"},
                                                  {"12x", "x"},
                                                  {"12", ""},
                                                  {"12   ", ""},
                                                  {"12 \xC2\xA0", "\xC2\xA0"}}));
    CHECK(Parse(line) == Translations{{12, text}});
}

TEST_CASE("ParseLanguageFile: a text may hold NUL characters", "[foundation]")
{
    CHECK(Parse("12 a\0b\n"s) == Translations{{12, "a\0b"s}});
}

TEST_CASE("ParseLanguageFile: lines end at CR, at LF and at both", "[foundation]")
{
    const std::string end = GENERATE("\r"s, "\n"s, "\r\n"s, "\n\r"s, "\n\n\r\r"s);
    const Translations expected = {{1, "one"}, {2, "two"}};
    CHECK(Parse("1 one" + end + "2 two") == expected);
    CHECK(Parse(end + "1 one" + end + "2 two" + end) == expected);
}

TEST_CASE("ParseLanguageFile: a later line with the same id replaces an earlier one",
          "[foundation]")
{
    CHECK(Parse("12 first\n0x0C second\n") == Translations{{12, "second"}});
    CHECK(Parse("12 first\n12\n") == Translations{{12, ""}});
    CHECK(Parse("12 first\n12 second\n 12 third\n;12 fourth\n") == Translations{{12, "second"}});
}

TEST_CASE("ParseLanguageFile: a long line and many lines are all taken", "[foundation]")
{
    const std::string longText(100'000, 'x');
    std::string file = "1 " + longText + "\n";
    for (int id = 2; id <= 5000; ++id)
    {
        file += std::to_string(id) + " text " + std::to_string(id) + "\n";
    }
    const Translations texts = Parse(file);
    REQUIRE(texts.size() == 5000);
    CHECK(texts.at(1) == longText);
    CHECK(texts.at(5000) == "text 5000");
}
