#include "tools/trace/text_pattern.h"

#include <catch.hpp>

#include <string>
#include <tuple>

using velt::TextPattern;

namespace
{
/// The same by definition: every way to divide the text is tried.
bool Fits(std::string_view text, std::string_view pattern)
{
    if (pattern.empty())
    {
        return true;
    }
    if (pattern.front() == '*')
    {
        for (std::size_t at = 0; at <= text.size(); ++at)
        {
            if (Fits(text.substr(at), pattern.substr(1)))
            {
                return true;
            }
        }
        return false;
    }
    const auto small = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return !text.empty() && (pattern.front() == '?' || small(pattern.front()) == small(text[0])) &&
           Fits(text.substr(1), pattern.substr(1));
}
} // namespace

TEST_CASE("TextPattern: plain texts are found anywhere, in either case", "[tools]")
{
    const auto [text, pattern, isIn] = GENERATE(table<std::string, std::string, bool>({
        {"CName::Add - enter", "add", true},
        {"CName::Add - enter", "ADD - ENTER", true},
        {"CName::Add - enter", "", true},
        {"", "", true},
        {"", "a", false},
        {"ad", "add", false},
        {"    CEnumVariantCol::get_Item - return = 0", "return = 0", true},
        {"    CEnumVariantCol::get_Item - return = 0", "return = 1", false},
        {"aaaaaaab", "aab", true},
        {"x[y", "x{y", false}, // one bit apart, and no letters
        {"x@y", "x`y", false},
        {"gr\xC3\xBC\xC3\x9F", "GR\xC3\xBC", true},
        {"\xC3\xA4", "\xC3\x84", false},
        {std::string("a\0b", 3), std::string("\0b", 2), true},
    }));
    CAPTURE(text, pattern);
    CHECK(TextPattern(pattern).IsIn(text) == isIn);
}

TEST_CASE("TextPattern: stars and question marks", "[tools]")
{
    const auto [text, pattern, isIn] = GENERATE(table<std::string, std::string, bool>({
        {"CName::Add - enter", "c*add*enter", true},
        {"CName::Add - enter", "enter*add", false},
        {"CName::Add - enter", "a?d", true},
        {"CName::Add - enter", "a??d", false},
        {"ab", "a?", true},
        {"a", "a?", false},
        {"a", "?", true},
        {"", "?", false},
        {"ab", "???", false},
        {"", "*", true},
        {"abc", "?b?", true},
        {"bc", "?b", false},
        {"xabxacd", "a?d", true},
        {"xabxacd", "a?*d", true},
        {"m\xC3\xBC"
         "de",
         "m?de", true}, // a character, not a byte
        {"m\xC3\xBC"
         "de",
         "m??de", false},
        {"3*4?", "3\\*4\\?", true},
        {"3x4y", "3\\*4\\?", false},
        {"C:\\path\\a", "path\\a", true}, // any other one stands for itself
        {"end\\", "d\\", true},
    }));
    CAPTURE(text, pattern);
    CHECK(TextPattern(pattern).IsIn(text) == isIn);
}

TEST_CASE("TextPattern: it agrees with the definition", "[tools]")
{
    // Of few characters, so that many are found and nearly found.
    unsigned state = 1;
    const auto next = [&](unsigned below) {
        state = state * 1103515245u + 12345u;
        return state / 65536u % below;
    };
    for (int i = 0; i < 20'000; ++i)
    {
        std::string text;
        std::string pattern;
        for (unsigned size = next(12); size > 0; --size)
        {
            text += "abA"[next(3)];
        }
        for (unsigned size = next(6); size > 0; --size)
        {
            pattern += "aB*?"[next(4)];
        }
        CAPTURE(text, pattern);
        REQUIRE(TextPattern(pattern).IsIn(text) == Fits(text, "*" + pattern));
    }
}
