#include "internet/http_file.h"

#include "tests/internet/exchange.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tests/support/real_servers.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using SendPatch = ImportPatch<"HttpSendRequestW", decltype(::HttpSendRequestW)>;
using QueryPatch = ImportPatch<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>;

/// A file whose opening failed.
struct FailedOpen : Exchange
{
    FailedOpen() : Exchange(1, L"/object")
    {
        file.reset();
        connection->Close();
        file = connection->OpenRequest(L"GET", L"/object", L"", 1, nullptr, nullptr, 0);
    }
};

class DerivedHttpFile : public CHttpFile
{
public:
    using CHttpFile::CHttpFile;
    virtual void Next() {}
};
} // namespace

TEST_CASE("CHttpFile: without a handle every operation fails with code 6", "[internet]")
{
    FailedOpen exchange;
    CHttpFile& file = *exchange.file;
    REQUIRE(file.GetHandle() == nullptr);
    std::array<wchar_t, 8> buffer{};
    std::wstring line = L"?";
    CHECK(CodeOf([&] { file.SendRequest(L"", 0, nullptr, 0); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { file.Read(buffer.data(), 8); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { file.ReadString(buffer.data(), 8); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { file.ReadString(line); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { file.Seek(0, FILE_BEGIN); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { file.Write("x", 1); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { file.WriteString(L"x"); }) == ERROR_INVALID_HANDLE);
}

TEST_CASE("CHttpFile: without a handle there is nothing to ask, flush or close", "[internet]")
{
    FailedOpen exchange;
    CHttpFile& file = *exchange.file;
    DWORD status = 0xCCCCCCCC;
    CHECK_FALSE(file.QueryInfoStatusCode(&status));
    CHECK(status == 0xCCCCCCCC);
    std::array<wchar_t, 8> buffer{L'?'};
    DWORD length = sizeof(buffer);
    file.QueryInfo(HTTP_QUERY_STATUS_CODE, buffer.data(), &length, nullptr);
    CHECK(buffer[0] == L'?');
    CHECK(file.GetLength() == 0);
    file.Flush();
    file.Close();
    CHECK(file.GetFileURL() == L"http://127.0.0.1/object");
    CHECK(file.GetVerb() == L"GET");
    CHECK(file.GetFileName() == L"/object");
    file.Abort();
    CHECK(file.GetFileName().empty());
}

TEST_CASE("CHttpFile: SendRequest passes everything on", "[internet]")
{
    Exchange exchange(1);
    char data[] = "data";
    std::vector<DWORD_PTR> seen;
    std::wstring headers;
    const SendPatch patch("wininet.dll", [&](HINTERNET handle, const wchar_t* text, DWORD length,
                                             void* optional, DWORD optionalLength) {
        headers = text;
        seen = {reinterpret_cast<DWORD_PTR>(handle), length, reinterpret_cast<DWORD_PTR>(optional),
                optionalLength};
        return TRUE;
    });
    exchange.file->SendRequest(L"X-Velt: 1\r\n", 11, data, 4);
    CHECK(headers == L"X-Velt: 1\r\n");
    CHECK(seen == std::vector<DWORD_PTR>{reinterpret_cast<DWORD_PTR>(exchange.file->GetHandle()),
                                         11, reinterpret_cast<DWORD_PTR>(data), 4});
}

TEST_CASE("CHttpFile: SendRequest carries the system's error code", "[internet]")
{
    SECTION("whichever it is")
    {
        const DWORD error = GENERATE(as<DWORD>{}, 0, ERROR_NOT_ENOUGH_MEMORY,
                                     ERROR_INTERNET_EXTENDED_ERROR, 0xFFFFFFFF);
        Exchange exchange(1);
        const SendPatch patch("wininet.dll", [&](HINTERNET, const wchar_t*, DWORD, void*, DWORD) {
            ::SetLastError(error);
            return FALSE;
        });
        CHECK(CodeOf([&] { exchange.Send(); }) == error);
    }
    SECTION("a server that refuses")
    {
        const RefusingPort refusing;
        Exchange exchange(refusing.Port());
        CHECK(CodeOf([&] { exchange.Send(); }) == ERROR_INTERNET_CANNOT_CONNECT);
    }
    SECTION("a server that nobody knows")
    {
        Exchange exchange(1);
        const auto connection =
            exchange.session.GetHttpConnection(L"no.such.host.invalid", 80, nullptr, nullptr);
        const auto file = connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, kFresh);
        CHECK(CodeOf([&] { file->SendRequest(L"", 0, nullptr, 0); }) ==
              ERROR_INTERNET_NAME_NOT_RESOLVED);
    }
    SECTION("a server that says nothing and goes")
    {
        const HttpServer server("");
        Exchange exchange(server.Port());
        const auto code = CodeOf([&] { exchange.Send(); });
        if (!code)
        {
            WARN("this system takes no answer for an answer of status " << exchange.Status());
            CHECK(ReadAll(*exchange.file).empty());
        }
        CHECK(code != 0u);
        CHECK(code != kExchangeContext);
    }
    SECTION("a closed file is told by the layer itself")
    {
        Exchange exchange(1);
        exchange.file->Close();
        CHECK(CodeOf([&] { exchange.Send(); }) == ERROR_INVALID_HANDLE);
    }
}

TEST_CASE("CHttpFile: sends headers and data", "[internet]")
{
    const HttpServer server(HttpAnswer("200 OK", "thanks"));
    Exchange exchange(server.Port(), L"/form", L"POST");
    char data[] = "a=1&b=\xFF";
    exchange.file->SendRequest(L"X-Velt: yes\r\n", 13, data, 7);
    CHECK(exchange.Status() == 200);
    CHECK(ReadAll(*exchange.file) == "thanks");
    const auto requests = server.Requests();
    REQUIRE(requests.size() == 1);
    INFO(requests[0]);
    CHECK(requests[0].starts_with("POST /form HTTP/1.1\r\n"));
    CHECK(requests[0].find("\r\nX-Velt: yes\r\n") != std::string::npos);
    CHECK(requests[0].find("\r\nContent-Length: 7\r\n") != std::string::npos);
    CHECK(requests[0].ends_with("\r\n\r\na=1&b=\xFF"));
}

TEST_CASE("CHttpFile: QueryInfoStatusCode reads the status of the answer", "[internet]")
{
    const auto [object, flags, status] = GENERATE(table<const wchar_t*, DWORD, DWORD>({
        {L"/plain.txt", 0, 200},
        {L"/empty", 0, 200},
        {L"/nowhere", 0, 404},
        {L"/moved", INTERNET_FLAG_NO_AUTO_REDIRECT, 302},
        {L"/moved", 0, 200},
    }));
    Exchange exchange(real_servers::HttpPort(), object, L"GET", kFresh | flags);
    exchange.Send();
    DWORD answer = 0xCCCCCCCC;
    CHECK(exchange.file->QueryInfoStatusCode(&answer));
    CHECK(answer == status);
    CHECK_FALSE(exchange.file->QueryInfoStatusCode(nullptr));
}

TEST_CASE("CHttpFile: QueryInfoStatusCode asks for the text in 80 bytes", "[internet]")
{
    const auto [text, succeeds, status] = GENERATE(table<std::wstring, BOOL, DWORD>({
        {L"200", TRUE, 200},
        {L"999", TRUE, 999},
        {L"", TRUE, 0},
        {L"abc", TRUE, 0},
        {L"12x", TRUE, 12},
        {L"200", FALSE, 0xCCCCCCCC},
    }));
    Exchange exchange(1);
    std::vector<DWORD_PTR> seen;
    const QueryPatch patch("wininet.dll", [&, answer = text, result = succeeds](
                                              HINTERNET handle, DWORD level, void* buffer,
                                              DWORD* length, DWORD* index) {
        seen = {reinterpret_cast<DWORD_PTR>(handle), level, *length,
                reinterpret_cast<DWORD_PTR>(index)};
        ::lstrcpyW(static_cast<wchar_t*>(buffer), answer.c_str());
        return result;
    });
    DWORD read = 0xCCCCCCCC;
    CHECK(exchange.file->QueryInfoStatusCode(&read) == (succeeds != FALSE));
    CHECK(read == status);
    CHECK(seen == std::vector<DWORD_PTR>{reinterpret_cast<DWORD_PTR>(exchange.file->GetHandle()),
                                         HTTP_QUERY_STATUS_CODE, 80, 0});
}

TEST_CASE("CHttpFile: QueryInfo reads numbers and texts of the answer", "[internet]")
{
    Exchange exchange(real_servers::HttpPort(), L"/body-8193");
    exchange.Send();
    DWORD contentLength = 0xCCCCCCCC;
    DWORD length = sizeof(contentLength);
    exchange.file->QueryInfo(HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER, &contentLength,
                             &length, nullptr);
    CHECK(contentLength == 8193);
    CHECK(length == 4);

    std::array<wchar_t, 64> text{};
    length = sizeof(text);
    DWORD index = 0;
    exchange.file->QueryInfo(HTTP_QUERY_CONTENT_TYPE, text.data(), &length, &index);
    CHECK(text.data() == std::wstring(L"text/plain"));
    CHECK(length == 20);
    CHECK(index == 1); // the next of that name
}

TEST_CASE("CHttpFile: QueryInfo that fails changes no more than the system does", "[internet]")
{
    Exchange exchange(real_servers::HttpPort(), L"/chunked");
    exchange.Send();
    DWORD contentLength = 0xCCCCCCCC;
    DWORD length = sizeof(contentLength);
    exchange.file->QueryInfo(HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER, &contentLength,
                             &length, nullptr);
    CHECK(contentLength == 0xCCCCCCCC); // a chunked answer has none

    std::array<wchar_t, 2> small{};
    length = sizeof(small);
    exchange.file->QueryInfo(HTTP_QUERY_CONTENT_TYPE, small.data(), &length, nullptr);
    CHECK(length > sizeof(small)); // what it takes
    CHECK(ReadAll(*exchange.file) == "plain text\n");
}

TEST_CASE("CHttpFile: GetFileURL is the server and the object", "[internet]")
{
    const auto [object, url] = GENERATE(table<const wchar_t*, std::wstring>({
        {L"", L"http://127.0.0.1"},
        {L"page", L"http://127.0.0.1/page"},
        {L"/page", L"http://127.0.0.1/page"},
        {L"\\page", L"http://127.0.0.1\\page"},
    }));
    Exchange exchange(1, object);
    CHECK(exchange.file->GetFileURL() == url);
    exchange.file->Close();
    CHECK(exchange.file->GetFileURL() == url);
    exchange.file->Abort(); // forgets the file's name, but not the object's
    CHECK(exchange.file->GetFileURL() == url);
}

TEST_CASE("CHttpFile: GetFileURL says http of a secure file too", "[internet]")
{
    Exchange exchange(1, L"/page", L"GET", INTERNET_FLAG_SECURE);
    CHECK(exchange.file->GetFileURL() == L"http://127.0.0.1/page");
}

TEST_CASE("CHttpFile: a file is sent again when the server wants credentials", "[internet]")
{
    // A realm that no other test uses: the system keeps credentials that were right.
    const HttpServer server([](HttpExchange& exchange) {
        const bool known = exchange.Request().find("\r\nAuthorization: Basic dXNlcjpwYXNz\r\n") !=
                           std::string::npos;
        exchange.Send(known ? HttpAnswer("200 OK", "private")
                            : HttpAnswer("401 Unauthorized", "who?",
                                         "WWW-Authenticate: Basic realm=\"sent again\"\r\n"));
    });
    Exchange exchange(server.Port());
    exchange.Send();
    REQUIRE(exchange.Status() == 401);
    exchange.Send();
    REQUIRE(exchange.Status() == 401); // as often as one likes
    wchar_t user[] = L"user";
    wchar_t password[] = L"pass";
    ::InternetSetOptionW(exchange.file->GetHandle(), INTERNET_OPTION_USERNAME, user, 4);
    ::InternetSetOptionW(exchange.file->GetHandle(), INTERNET_OPTION_PASSWORD, password, 4);
    exchange.Send();
    CHECK(exchange.Status() == 200);
    CHECK(ReadAll(*exchange.file) == "private");
    CHECK(server.Requests().size() >= 3); // systems may ask once more before they tell
}

TEST_CASE("CHttpFile: its operations stand in the slots that they always had", "[internet]")
{
    CHECK(VirtualSlot(&CHttpFile::Seek) == 0);
    CHECK(VirtualSlot(&CHttpFile::GetFileURL) == 12); // behind the destructor's two
    CHECK(VirtualSlot(&DerivedHttpFile::Next) == 13);
}
