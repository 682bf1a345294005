#include "tools/velt/request_header.h"

#include <catch.hpp>

#include <string>

using namespace velt::tool;

TEST_CASE("ParseRequestHeader: a name, a colon and a value without the blanks around it", "[tools]")
{
    const auto [text, name, value] = GENERATE(table<std::wstring, std::string, std::string>(
        {{L"X-One:1", "X-One", "1"},
         {L"X-One: \t a \"b\": c\td \t", "X-One", "a \"b\": c\td"},
         {L"a:::", "a", "::"},
         {L"!#$%&'*+-.^_`|~09azAZ:~", "!#$%&'*+-.^_`|~09azAZ", "~"},
         {L"Content-Lengths:1", "Content-Lengths", "1"},
         {L"Content-Type:text/plain", "Content-Type", "text/plain"}}));
    const auto header = ParseRequestHeader(text);
    REQUIRE(header);
    CHECK(header->name == name);
    CHECK(header->value == value);
}

TEST_CASE("ParseRequestHeader: nothing that is no single header", "[tools]")
{
    for (const std::wstring& text :
         {std::wstring(), std::wstring(L":"), std::wstring(L"X-One"), std::wstring(L"X-One:"),
          std::wstring(L"X-One: \t "), std::wstring(L": 1"), std::wstring(L"X One: 1"),
          std::wstring(L" X-One: 1"), std::wstring(L"X-One : 1"), std::wstring(L"X-\u00C9: 1"),
          std::wstring(L"X-One: \u00E9"), std::wstring(L"X-One: \u0161"),
          std::wstring(L"X-One: 1\r\nX-Two: 2"), std::wstring(L"X-One: 1\n"),
          std::wstring(L"X-One: 1\r"), std::wstring(L"X-\nOne: 1"), std::wstring(L"(X): 1"),
          std::wstring(L"X-One: a\0b", 10), std::wstring(L"X-One: a\x7F")})
    {
        INFO(std::string(text.begin(), text.end()));
        CHECK_FALSE(ParseRequestHeader(text));
    }
}

TEST_CASE("ParseRequestHeader: nothing that says where the data ends", "[tools]")
{
    CHECK_FALSE(ParseRequestHeader(L"Content-Length: 5"));
    CHECK_FALSE(ParseRequestHeader(L"content-length:5"));
    CHECK_FALSE(ParseRequestHeader(L"TRANSFER-ENCODING: chunked"));
}

TEST_CASE("IsSameHeader: whatever the capitals", "[tools]")
{
    CHECK(IsSameHeader("Accept", "aCCEPT"));
    CHECK(IsSameHeader("AZ", "az"));
    CHECK_FALSE(IsSameHeader("Accept", "Accept-Language"));
    CHECK_FALSE(IsSameHeader("Accept-Language", "Accept"));
    CHECK_FALSE(IsSameHeader("a@[", "a`{")); // letters only
}
