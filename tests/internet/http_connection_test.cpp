#include "internet/http_connection.h"

#include "tests/internet/exchange.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using OpenRequestPatch = ImportPatch<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>;

constexpr DWORD kOwnersContext = 0x77;
constexpr DWORD kConnectionContext = 0x88;

/// A session and a connection that has a context of its own.
struct Connected
{
    explicit Connected(INTERNET_PORT port = 1)
        : session(L"Velt test", kOwnersContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0),
          connection(&session, L"127.0.0.1", port, nullptr, nullptr, kConnectionContext)
    {
    }

    CInternetSession session;
    CHttpConnection connection;
};

class DerivedConnection : public CHttpConnection
{
public:
    using CHttpConnection::CHttpConnection;
    virtual void Next() {}
};

/// The request line and headers that a server got for a request opened like this.
std::string RequestFor(const wchar_t* verb, const wchar_t* object, const wchar_t* referer,
                       const wchar_t** acceptTypes, const wchar_t* version)
{
    const HttpServer server(HttpAnswer("200 OK", ""));
    Connected connected(server.Port());
    const auto file =
        connected.connection.OpenRequest(verb, object, referer, 1, acceptTypes, version, kFresh);
    file->SendRequest(L"", 0, nullptr, 0);
    const auto requests = server.Requests();
    return requests.empty() ? std::string() : requests.front();
}

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != text.npos;
}
} // namespace

TEST_CASE("CHttpConnection: OpenRequest passes everything on", "[internet]")
{
    Connected connected;
    std::vector<std::wstring> texts;
    std::vector<DWORD_PTR> numbers;
    const OpenRequestPatch patch(
        "wininet.dll",
        [&](HINTERNET handle, const wchar_t* verb, const wchar_t* object, const wchar_t* version,
            const wchar_t* referer, const wchar_t** acceptTypes, DWORD flags, DWORD_PTR context) {
            texts = {verb, object, version, referer, acceptTypes[0]};
            numbers = {reinterpret_cast<DWORD_PTR>(handle), flags, context};
            return OpenRequestPatch::Original(handle, verb, object, version, referer, acceptTypes,
                                              flags, context);
        });
    const wchar_t* acceptTypes[] = {L"text/plain", nullptr};
    const auto file = connected.connection.OpenRequest(L"POST", L"/object", L"http://referer/", 5,
                                                       acceptTypes, L"HTTP/1.1", kFresh);
    CHECK(texts == std::vector<std::wstring>{L"POST", L"/object", L"HTTP/1.1", L"http://referer/",
                                             L"text/plain"});
    CHECK(numbers == std::vector<DWORD_PTR>{
                         reinterpret_cast<DWORD_PTR>(connected.connection.GetHandle()), kFresh, 5});
    CHECK(file->GetServerName() == L"127.0.0.1");
    CHECK(file->GetObjectName() == L"/object");
    CHECK(file->GetFileName() == L"/object");
    CHECK(file->GetVerb() == L"POST");
    CHECK(velt::HandleRegistry::Instance().Find(file->GetHandle()) == &connected.session);
}

TEST_CASE("CHttpConnection: OpenRequest without a version asks for HTTP/1.0", "[internet]")
{
    Connected connected;
    std::wstring seen;
    const wchar_t** types = reinterpret_cast<const wchar_t**>(&seen);
    const OpenRequestPatch patch("wininet.dll", [&](HINTERNET, const wchar_t*, const wchar_t*,
                                                    const wchar_t* version, const wchar_t*,
                                                    const wchar_t** acceptTypes, DWORD, DWORD_PTR) {
        seen = version;
        types = acceptTypes;
        return nullptr;
    });
    connected.connection.OpenRequest(L"GET", L"/", nullptr, 1, nullptr, nullptr, 0);
    CHECK(seen == L"HTTP/1.0");
    CHECK(types == nullptr);
}

TEST_CASE("CHttpConnection: OpenRequest takes the connection's context for 1 and keeps any other",
          "[internet]")
{
    const auto [given, kept] = GENERATE(table<DWORD, DWORD>({
        {0, 0},
        {1, kConnectionContext},
        {2, 2},
        {kOwnersContext, kOwnersContext},
        {0xFFFFFFFF, 0xFFFFFFFF},
    }));
    Connected connected;
    const auto file =
        connected.connection.OpenRequest(L"GET", L"/", L"", given, nullptr, nullptr, 0);
    CHECK(file->GetContext() == kept);
    CHECK(file->GetHandle() != nullptr);
}

TEST_CASE("CHttpConnection: a failed OpenRequest gives a file without a handle", "[internet]")
{
    Connected connected;
    connected.connection.Close();
    CHECK(OpenHandles() == 1);
    const auto file =
        connected.connection.OpenRequest(L"GET", L"/object", L"", 1, nullptr, nullptr, 0);
    REQUIRE(file);
    CHECK(file->GetHandle() == nullptr);
    CHECK(file->GetObjectName() == L"/object");
    CHECK(OpenHandles() == 1);
    CHECK(CodeOf([&] { file->SendRequest(L"", 0, nullptr, 0); }) == ERROR_INVALID_HANDLE);
}

TEST_CASE("CHttpConnection: OpenRequest leaves null texts to the system", "[internet]")
{
    Connected connected;
    const auto file =
        connected.connection.OpenRequest(nullptr, nullptr, nullptr, 1, nullptr, nullptr, 0);
    CHECK(file->GetHandle() != nullptr);
    CHECK(file->GetVerb().empty());
    CHECK(file->GetObjectName().empty());
    CHECK(file->GetFileURL() == L"http://127.0.0.1");
}

TEST_CASE("CHttpConnection: the server gets the request as it was opened", "[internet]")
{
    const wchar_t* acceptTypes[] = {L"text/velt", nullptr};
    const std::string request =
        RequestFor(L"DELETE", L"/a/b?c=d", L"http://referer/page", acceptTypes, L"HTTP/1.1");
    INFO(request);
    CHECK(request.starts_with("DELETE /a/b?c=d HTTP/1.1\r\n"));
    CHECK(Contains(request, "\r\nAccept: text/velt\r\n"));
    CHECK(Contains(request, "\r\nReferer: http://referer/page\r\n"));
    CHECK(Contains(request, "\r\nUser-Agent: Velt test\r\n"));
}

TEST_CASE("CHttpConnection: without accept types and referer the server sees none", "[internet]")
{
    const std::string request = RequestFor(L"GET", L"/", L"", nullptr, nullptr);
    INFO(request);
    CHECK(request.starts_with("GET / HTTP/1.0\r\n"));
    CHECK_FALSE(Contains(request, "\r\nAccept:"));
    if (Contains(request, "\r\nReferer:"))
    {
        WARN("this system sends an empty referer");
        CHECK(Contains(request, "\r\nReferer: \r\n"));
    }
}

TEST_CASE("CHttpConnection: its destructor stands in the connection's slots", "[internet]")
{
    CHECK(VirtualSlot(&CHttpConnection::Close) == 0);
    CHECK(VirtualSlot(&DerivedConnection::Next) == 3);
}
