// Cookies of one edition's hosts, read by the other's.

#include "tests/tools/editions/edition_programs.h"

#include <catch.hpp>

#include <string>

using namespace velt::test;

TEST_CASE("Editions: a cookie that one writes, the other reads", "[service]")
{
    const auto [writer, reader] = InOrder(GENERATE(false, true));
    const std::wstring url = std::wstring(L"http://www.plain") + writer.name + L".velt.example/";
    Velt(writer,
         {L"cookie", L"set", url, L"shared", L"value; expires=Sat, 01-Jan-2050 00:00:00 GMT"});
    CHECK(Velt(reader, {L"cookie", L"get", url}) == "shared=value\n");
}

TEST_CASE("Editions: a value of the safe store that one writes, the other reads and replaces",
          "[service]")
{
    const auto [writer, reader] = InOrder(GENERATE(false, true));
    const std::wstring url = std::wstring(L"http://www.safe") + writer.name + L".velt.example/";
    Velt(writer, {L"safe", L"set", url, L"name", L"a=b; c \x00E4\x4E2D"});
    Velt(writer, {L"safe", L"set", url, L"other", L"stays"});
    CHECK(Velt(reader, {L"safe", L"get", url, L"name"}) == "a=b; c \xC3\xA4\xE4\xB8\xAD\n");
    Velt(reader, {L"safe", L"set", url, L"name", L"replaced"});
    CHECK(Velt(writer, {L"safe", L"get", url, L"name"}) == "replaced\n");
    CHECK(Velt(writer, {L"safe", L"get", url, L"other"}) == "stays\n");
}

TEST_CASE("Editions: the safe store's cookie has the same bytes", "[service]")
{
    std::string cookies[2];
    for (const bool is64 : {false, true})
    {
        const EditionPrograms& edition = is64 ? Programs64() : Programs32();
        const std::wstring url =
            std::wstring(L"http://www.bytes") + edition.name + L".velt.example/";
        Velt(edition, {L"safe", L"set", url, L"name", L"a=b; c \x00E4\x4E2D"});
        Velt(edition, {L"safe", L"set", url, L"", L""});
        cookies[is64] = Velt(edition, {L"cookie", L"get", url});
    }
    CHECK(cookies[0].starts_with("velt="));
    CHECK(cookies[0] == cookies[1]);
}
