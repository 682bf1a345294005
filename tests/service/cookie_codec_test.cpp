#include "service/cookie_codec.h"
#include "service/scrambled_text.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt;

namespace
{
SafeContent Content(std::uint32_t revision, std::vector<SafePair> pairs)
{
    return {revision, std::move(pairs)};
}
} // namespace

TEST_CASE("EncodeCookieValue: any texts survive the round trip", "[service]")
{
    const std::u16string text =
        GENERATE(std::u16string(), std::u16string(u"plain"), std::u16string(u"a=b; c=d, \"e\"\r\n"),
                 std::u16string(u"\u00E4\u0416\u4E2D\U0001F600"), std::u16string(u"\xD800 alone"),
                 std::u16string(u"\xDC00\xD800"), std::u16string(u"\0zero\0", 6),
                 std::u16string(u"\xFFFF"), std::u16string(1000, u'\x80'));
    const SafeContent content =
        Content(7, {{text, u"value"}, {u"name", text}, {text + u"x", text}});
    const std::string value = EncodeCookieValue(content);
    CHECK(value.find_first_of("=;, \t\r\n\"\\") == std::string::npos);
    CHECK(DecodeCookieValue(value) == content);
}

TEST_CASE("EncodeCookieValue: the bytes are the documented ones", "[service]")
{
    const std::string value =
        EncodeCookieValue(Content(300, {{u"n", u"\u00E4"}, {u"", u"\u4E2D"}}));
    const std::string expected("\xAC\x02"             // 300
                               "\x01n\x01\xE4\x01"    // "n", U+00E4
                               "\x00\x01\xAD\x9C\x01" // "", U+4E2D
                               ,
                               12);
    CHECK(Unscramble(value) == expected);
}

TEST_CASE("DecodeCookieValue: a content that does not end where it says is none", "[service]")
{
    const std::string clear =
        GENERATE(std::string(), std::string("\x80", 1), std::string("\x01\x05n", 3),
                 std::string("\x01\x01n", 3),                // a name without a value
                 std::string("\x01\xFF\xFF\xFF\xFF\x0F", 6), // a giant length
                 std::string("\x01\xFF\xFF\xFF\xFF\x1F", 6), // a length of more than 32 bits
                 std::string("\x80\x80\x80\x80\x80\x80\x80\x01", 8), // a number that does not end
                 std::string("\x80\x00", 2),                         // a number with a shorter form
                 std::string("\x01\x01\x80\x80\x04\x01v", 7));       // a unit past 0xFFFF
    CHECK_FALSE(DecodeCookieValue(Scramble(clear)));
}

TEST_CASE("SafeContent: a name written again is replaced, an empty name is a name", "[service]")
{
    SafeContent content;
    CHECK(content.Find(u"") == nullptr);
    content.Set(u"a", u"1");
    content.Set(u"", u"empty");
    content.Set(u"A", u"other");
    content.Set(u"a", u"2");
    REQUIRE(content.pairs.size() == 3);
    CHECK(*content.Find(u"a") == u"2");
    CHECK(*content.Find(u"") == u"empty");
    CHECK(*content.Find(u"A") == u"other");
    CHECK(content.Find(u"b") == nullptr);
}

TEST_CASE("FindSafeContent: our cookie is found among others", "[service]")
{
    const SafeContent content = Content(1, {{u"n", u"v"}});
    const std::string ours = "velt=" + EncodeCookieValue(content);
    const std::string cookies = GENERATE_COPY(
        as<std::string>(), ours, ours + "; a=b", "a=b; " + ours, "a=b;" + ours + ";c=d",
        "noequals; " + ours + "; ", ";;" + ours, "  velt = " + ours.substr(5) + "\t",
        "xvelt=1; veltx=2; VELT=3; " + ours, "velt; " + ours, "velt=; " + ours);
    INFO(cookies);
    CHECK(FindSafeContent(cookies) == content);
}

TEST_CASE("FindSafeContent: cookies of others under our name hold nothing", "[service]")
{
    const std::string ours = "velt=" + EncodeCookieValue(Content(1, {{u"n", u"v"}}));
    const std::string cookies = GENERATE_COPY(
        as<std::string>(), "", "velt", "velt=", "velt=deleted", ours.substr(0, ours.size() - 1),
        ours + "A", ours + "=", "VELT=" + ours.substr(5), "velt=" + std::string(1'000'000, 'A'),
        std::string(1'000'000, ';'), "velt=\"" + ours.substr(5) + "\"");
    CHECK(FindSafeContent(cookies) == SafeContent());
}

TEST_CASE("FindSafeContent: of several cookies of ours the newest whole one counts", "[service]")
{
    const SafeContent older = Content(3, {{u"n", u"old"}});
    const SafeContent newer = Content(4, {{u"n", u"new"}});
    const std::string oldText = "velt=" + EncodeCookieValue(older);
    const std::string newText = "velt=" + EncodeCookieValue(newer);
    CHECK(FindSafeContent(oldText + "; " + newText) == newer);
    CHECK(FindSafeContent(newText + "; " + oldText) == newer);
    CHECK(FindSafeContent(newText + "x; " + oldText) == older); // damaged
    CHECK(FindSafeContent("velt=random; " + oldText + "; velt=") == older);
}

TEST_CASE("MakeCookieData: attributes that are not empty follow the value", "[service]")
{
    const SafeContent content = Content(1, {{u"n", u"v"}});
    const std::string pair = "velt=" + EncodeCookieValue(content);
    CHECK(MakeCookieData(content, "", "") == pair);
    CHECK(MakeCookieData(content, ".example", "") == pair + ";domain=.example");
    CHECK(MakeCookieData(content, "", "Sat, 5-May-2007  9: 4: 0 GMT") ==
          pair + ";expires=Sat, 5-May-2007  9: 4: 0 GMT");
    CHECK(MakeCookieData(content, "a.example", "E") == pair + ";domain=a.example;expires=E");
}

TEST_CASE("MakeCookieData: a domain that would end its attribute is refused", "[service]")
{
    const std::string domain = GENERATE(as<std::string>(), "a;path=/", "a b", "a,b", "a\r\nb", "\t",
                                        std::string("a\0b", 3), "a\x7F");
    CHECK_FALSE(MakeCookieData(Content(1, {}), domain, ""));
}

TEST_CASE("MakeCookieData: a cookie at the limit is whole, a longer one is refused", "[service]")
{
    SafeContent content;
    std::size_t length = 0;
    for (;; ++length)
    {
        content.Set(u"n", std::u16string(length, u'x'));
        const std::optional<std::string> data = MakeCookieData(content, "", "");
        if (!data)
        {
            break;
        }
        REQUIRE(data->size() <= kMaxCookieBytes);
        REQUIRE(DecodeCookieValue(data->substr(5)) == content);
        length += length < 2900 ? 99 : 0;
    }
    CHECK(length > 3000); // three bytes of content take four characters
    content.Set(u"n", std::u16string(length - 1, u'x'));
    REQUIRE(MakeCookieData(content, "", ""));
    // Attributes count.
    CHECK_FALSE(MakeCookieData(content, "a.long.domain.example", ""));
}
