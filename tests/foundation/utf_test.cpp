#include "foundation/utf.h"

#include "tests/support/well_formed_utf8.h"

#include <catch.hpp>

#include <string>

using velt::Utf16FromUtf8;
using velt::Utf8FromUtf16;
using velt::test::IsWellFormedUtf8;

namespace
{
/// A code point in UTF-16, by the definition of surrogate pairs.
std::u16string Utf16Of(char32_t point)
{
    if (point < 0x10000)
    {
        return {static_cast<char16_t>(point)};
    }
    const char32_t offset = point - 0x10000;
    return {static_cast<char16_t>(0xD800 | offset >> 10),
            static_cast<char16_t>(0xDC00 | (offset & 0x3FF))};
}

std::u16string Replacements(std::size_t count)
{
    return std::u16string(count, u'\xFFFD');
}
} // namespace

TEST_CASE("Utf8FromUtf16: each length of sequence is made at both of its ends", "[foundation]")
{
    const auto [utf16, utf8] = GENERATE(table<std::u16string, std::string>(
        {{u"", ""},
         {u"A", "A"},
         {u"\x7F", "\x7F"},
         {u"\x80", "\xC2\x80"},
         {u"\x7FF", "\xDF\xBF"},
         {u"\x800", "\xE0\xA0\x80"},
         {u"\xD7FF", "\xED\x9F\xBF"},
         {u"\xE000", "\xEE\x80\x80"},
         {u"\xFFFF", "\xEF\xBF\xBF"},
         {u"\xD800\xDC00", "\xF0\x90\x80\x80"},
         {u"\xD83D\xDE00", "\xF0\x9F\x98\x80"},
         {u"\xDBFF\xDFFF", "\xF4\x8F\xBF\xBF"},
         {u"a\xE4\x4E2D\xD83D\xDE00z", "a\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80z"}}));
    CHECK(Utf8FromUtf16(utf16) == utf8);
    CHECK(Utf16FromUtf8(utf8) == utf16);
}

TEST_CASE("Utf8FromUtf16: a surrogate without its partner is replaced alone", "[foundation]")
{
    const std::string replaced = "\xEF\xBF\xBD";
    CHECK(Utf8FromUtf16(u"\xD800") == replaced);
    CHECK(Utf8FromUtf16(u"\xDC00") == replaced);
    CHECK(Utf8FromUtf16(u"\xD800"
                        u"a") == replaced + "a");
    CHECK(Utf8FromUtf16(u"\xDC00\xD800") == replaced + replaced);
    CHECK(Utf8FromUtf16(u"\xD800\xD83D\xDE00") == replaced + "\xF0\x9F\x98\x80");
    CHECK(Utf8FromUtf16(u"\xD83D\xDE00\xDE00") == "\xF0\x9F\x98\x80" + replaced);
}

TEST_CASE("Utf16FromUtf8: a NUL is a character like others", "[foundation]")
{
    using namespace std::string_literals;
    CHECK(Utf16FromUtf8("a\0b"s) == u"a\0b"s);
    CHECK(Utf8FromUtf16(u"a\0b"s) == "a\0b"s);
}

TEST_CASE("Utf16FromUtf8: each byte that belongs to no well-formed sequence is one U+FFFD",
          "[foundation]")
{
    const auto [what, bytes, count] = GENERATE(table<std::string, std::string, std::size_t>(
        {{"continuation byte alone", "\x80", 1},
         {"two continuation bytes", "\xBF\x80", 2},
         {"overlong of two, lowest", "\xC0\x80", 2},
         {"overlong of two, highest", "\xC1\xBF", 2},
         {"overlong of three", "\xE0\x80\x80", 3},
         {"overlong of three, highest", "\xE0\x9F\xBF", 3},
         {"overlong of four", "\xF0\x80\x80\x80", 4},
         {"overlong of four, highest", "\xF0\x8F\xBF\xBF", 4},
         {"high surrogate", "\xED\xA0\x80", 3},
         {"low surrogate", "\xED\xBF\xBF", 3},
         {"first past the last code point", "\xF4\x90\x80\x80", 4},
         {"lead byte F5", "\xF5\x80\x80\x80", 4},
         {"sequence of five", "\xF8\x88\x80\x80\x80", 5},
         {"sequence of six", "\xFC\x84\x80\x80\x80\x80", 6},
         {"bytes that never occur", "\xFE\xFF", 2},
         {"two of two missing one", "\xC3", 1},
         {"three missing one", "\xE4\xB8", 2},
         {"three missing two", "\xE4", 1},
         {"four missing one", "\xF0\x9F\x98", 3},
         {"four missing three", "\xF0", 1}}));
    INFO(what);
    REQUIRE_FALSE(IsWellFormedUtf8(bytes));
    CHECK(Utf16FromUtf8(bytes) == Replacements(count));
    CHECK(Utf16FromUtf8("a" + bytes + "b") == u"a" + Replacements(count) + u"b");
    // What follows is not swallowed, whatever the lead byte promised.
    CHECK(Utf16FromUtf8(bytes + "\xC3\xA4") == Replacements(count) + u"\xE4");
}

TEST_CASE("Utf16FromUtf8: every code point comes back as it went", "[foundation]")
{
    std::size_t wrong = 0;
    for (char32_t point = 0; point <= 0x10FFFF; ++point)
    {
        if (point == 0xD800)
        {
            point = 0xE000; // surrogates are no characters
        }
        const std::u16string utf16 = Utf16Of(point);
        const std::string utf8 = Utf8FromUtf16(utf16);
        wrong += IsWellFormedUtf8(utf8) && Utf16FromUtf8(utf8) == utf16 ? 0u : 1u;
    }
    CHECK(wrong == 0);
}

TEST_CASE("Utf16FromUtf8: takes exactly the well-formed sequences of up to three bytes",
          "[foundation]")
{
    // All pairs and, behind each lead byte of three, all its continuations.
    std::size_t wrong = 0;
    const auto tryBytes = [&wrong](std::string_view bytes) {
        const std::u16string decoded = Utf16FromUtf8(bytes);
        const bool intact = decoded.find(u'\xFFFD') == decoded.npos || bytes == "\xEF\xBF\xBD";
        wrong += intact == IsWellFormedUtf8(bytes) ? 0u : 1u;
    };
    for (unsigned first = 0; first < 256; ++first)
    {
        for (unsigned second = 0; second < 256; ++second)
        {
            const char pair[] = {static_cast<char>(first), static_cast<char>(second)};
            tryBytes({pair, 2});
            for (unsigned third = 0; first >= 0xE0 && third < 256; ++third)
            {
                const char three[] = {pair[0], pair[1], static_cast<char>(third)};
                tryBytes({three, 3});
            }
        }
    }
    CHECK(wrong == 0);
}
