#include "internet/internet_connection.h"

#include "tests/internet/exchange.h"
#include "tests/support/import_patch.h"
#include "tests/support/real_servers.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using ConnectPatch = ImportPatch<"InternetConnectW", decltype(::InternetConnectW)>;
using CloseHandlePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;

constexpr DWORD kSessionContext = 0x77;

CInternetSession DirectSession()
{
    return CInternetSession(L"Velt test", kSessionContext, INTERNET_OPEN_TYPE_DIRECT, nullptr,
                            nullptr, 0);
}

/// A connection for any service.
class PlainConnection : public CInternetConnection
{
public:
    using CInternetConnection::CInternetConnection;

    PlainConnection(CInternetSession* session, const wchar_t* server, DWORD service, DWORD context)
        : CInternetConnection(session, server, 99, nullptr, nullptr, service, context)
    {
    }

    virtual void Next() {}
};
} // namespace

TEST_CASE("CInternetConnection: a context of 1 takes the session's, any other is kept",
          "[internet]")
{
    const auto [given, kept] = GENERATE(table<DWORD, DWORD>({
        {0, 0},
        {1, kSessionContext},
        {2, 2},
        {kSessionContext, kSessionContext},
        {0xFFFFFFFF, 0xFFFFFFFF},
    }));
    CInternetSession session = DirectSession();
    DWORD_PTR passed = 0xCCCCCCCC;
    const ConnectPatch patch("wininet.dll",
                             [&](HINTERNET handle, const wchar_t* server, INTERNET_PORT port,
                                 const wchar_t* user, const wchar_t* password, DWORD service,
                                 DWORD flags, DWORD_PTR context) {
                                 passed = context;
                                 return ConnectPatch::Original(handle, server, port, user, password,
                                                               service, flags, context);
                             });
    const CHttpConnection connection(&session, L"server", 80, nullptr, nullptr, given);
    CHECK(connection.GetContext() == kept);
    CHECK(passed == kept);
}

TEST_CASE("CInternetConnection: connects with what it was given", "[internet]")
{
    CInternetSession session = DirectSession();
    std::vector<std::wstring> texts;
    std::vector<DWORD_PTR> numbers;
    const ConnectPatch patch("wininet.dll", [&](HINTERNET handle, const wchar_t* server,
                                                INTERNET_PORT port, const wchar_t* user,
                                                const wchar_t* password, DWORD service, DWORD flags,
                                                DWORD_PTR context) {
        texts = {server, user, password};
        numbers = {reinterpret_cast<DWORD_PTR>(handle), port, service, flags};
        return ConnectPatch::Original(handle, server, port, user, password, service, flags,
                                      context);
    });
    const CHttpConnection connection(&session, L"server", 65535, L"user", L"password", 1);
    CHECK(texts == std::vector<std::wstring>{L"server", L"user", L"password"});
    CHECK(numbers == std::vector<DWORD_PTR>{reinterpret_cast<DWORD_PTR>(session.GetHandle()), 65535,
                                            INTERNET_SERVICE_HTTP, 0});
    CHECK(connection.GetServerName() == L"server");
    CHECK(connection.GetPort() == 65535);
    CHECK(connection.GetSession() == &session);
    CHECK(velt::HandleRegistry::Instance().Find(connection.GetHandle()) == &session);
}

TEST_CASE("CInternetConnection: opens the service that its class is for", "[internet]")
{
    CInternetSession session = DirectSession();
    DWORD seen = 0;
    const ConnectPatch patch("wininet.dll",
                             [&](HINTERNET, const wchar_t*, INTERNET_PORT, const wchar_t*,
                                 const wchar_t*, DWORD service, DWORD, DWORD_PTR) {
                                 seen = service;
                                 return nullptr;
                             });
    CHECK(CodeOf([&] { PlainConnection(&session, L"server", INTERNET_SERVICE_GOPHER, 5); }) == 5u);
    CHECK(seen == INTERNET_SERVICE_GOPHER);
}

TEST_CASE("CInternetConnection: a failed connection carries its context and leaves the last error",
          "[internet]")
{
    const auto [given, code] = GENERATE(table<DWORD, DWORD>({
        {0, 0},
        {1, kSessionContext},
        {0x99, 0x99},
    }));
    CInternetSession session = DirectSession();
    const ConnectPatch patch("wininet.dll",
                             [](HINTERNET, const wchar_t*, INTERNET_PORT, const wchar_t*,
                                const wchar_t*, DWORD, DWORD, DWORD_PTR) {
                                 ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                                 return nullptr;
                             });
    const auto thrown = CodeOf([&, context = given] {
        CHttpConnection(&session, L"server", 80, nullptr, nullptr, context);
    });
    const DWORD lastError = ::GetLastError();
    CHECK(thrown == code);
    CHECK(lastError == ERROR_NOT_ENOUGH_MEMORY);
    CHECK(OpenHandles() == 1); // the session's
}

TEST_CASE("CInternetConnection: what the system refuses to connect to is a failure", "[internet]")
{
    const wchar_t* const server = GENERATE(as<const wchar_t*>{}, L"", nullptr);
    CInternetSession session = DirectSession();
    const auto thrown =
        CodeOf([&] { CHttpConnection(&session, server, 80, nullptr, nullptr, 0x99); });
    const DWORD lastError = ::GetLastError();
    CHECK(thrown == 0x99u);
    CHECK(lastError == ERROR_INVALID_PARAMETER);
    CHECK(OpenHandles() == 1);
}

TEST_CASE("CInternetConnection: of a closed session it fails", "[internet]")
{
    CInternetSession session = DirectSession();
    session.Close();
    const auto thrown =
        CodeOf([&] { CHttpConnection(&session, L"server", 80, nullptr, nullptr, 1); });
    const DWORD lastError = ::GetLastError();
    CHECK(thrown == kSessionContext);
    CHECK(lastError == ERROR_INVALID_HANDLE);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetConnection: closes once, by Close or by its destructor", "[internet]")
{
    CInternetSession session = DirectSession();
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        CHttpConnection connection(&session, L"server", 80, nullptr, nullptr, 1);
        connection.Close();
        CHECK(connection.GetHandle() == nullptr);
        CHECK(OpenHandles() == 1);
        connection.Close();
    }
    CHECK(patch.Calls() == 1);
    {
        const CHttpConnection connection(&session, L"server", 80, nullptr, nullptr, 1);
        CHECK(OpenHandles() == 2);
    }
    CHECK(patch.Calls() == 2);
    CHECK(OpenHandles() == 1);
}

TEST_CASE("CInternetConnection: user and password are for a server that asks", "[internet]")
{
    const auto [user, password, status] = GENERATE(table<const wchar_t*, const wchar_t*, DWORD>({
        {nullptr, nullptr, 401},
        {L"user", L"wrong", 401},
        {L"user", L"secret", 200},
    }));
    CInternetSession session = DirectSession();
    CHttpConnection connection(&session, real_servers::kPasswordHost, real_servers::HttpPort(),
                               user, password, 1);
    const auto file =
        connection.OpenRequest(L"GET", L"/private/", L"", 1, nullptr, L"HTTP/1.1", kFresh);
    file->SendRequest(L"", 0, nullptr, 0);
    DWORD answer = 0;
    CHECK(file->QueryInfoStatusCode(&answer));
    CHECK(answer == status);
    if (status == 200)
    {
        CHECK(ReadAll(*file) == "private text\n");
    }
}

TEST_CASE("CInternetConnection: its operations stand in the slots that they always had",
          "[internet]")
{
    CHECK(VirtualSlot(&CInternetConnection::Close) == 0);
    CHECK(VirtualSlot(&PlainConnection::Next) == 3); // behind the destructor's two
}
