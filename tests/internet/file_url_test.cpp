#include "internet/file_url.h"

#include <catch.hpp>

using velt::FileUrl;

TEST_CASE("FileUrl: one slash divides the server and the object", "[internet]")
{
    const auto [server, object, url] = GENERATE(table<std::wstring, std::wstring, std::wstring>({
        {L"host", L"page", L"http://host/page"},
        {L"host", L"/page", L"http://host/page"},
        {L"host", L"\\page", L"http://host\\page"},
        {L"host", L"//page", L"http://host//page"},
        {L"host", L"/", L"http://host/"},
        {L"host", L"\\", L"http://host\\"},
        {L"host", L"a/b\\c", L"http://host/a/b\\c"},
        {L"host", L"?query", L"http://host/?query"},
        {L"host:8080", L"page", L"http://host:8080/page"},
        {L"h\u00F6st", L"s\u00FCd", L"http://h\u00F6st/s\u00FCd"},
    }));
    CHECK(FileUrl(server, object) == url);
}

TEST_CASE("FileUrl: without an object it ends with the server", "[internet]")
{
    CHECK(FileUrl(L"host", L"") == L"http://host");
    CHECK(FileUrl(L"", L"") == L"http://");
}

TEST_CASE("FileUrl: the scheme is http whatever the server is called", "[internet]")
{
    CHECK(FileUrl(L"https://host", L"page") == L"http://https://host/page");
    CHECK(FileUrl(L"", L"page") == L"http:///page");
}

TEST_CASE("FileUrl: embedded nulls are characters like others", "[internet]")
{
    const std::wstring server(L"h\0st", 4);
    const std::wstring object(L"\0p", 2);
    CHECK(FileUrl(server, object) == L"http://" + server + L"/" + object);
}
