// Every call that the layer makes of the platform fails in turn: nothing crashes, and nothing stays
// open.

#include "internet/connection_properties.h"
#include "internet/internet_proxy.h"
#include "internet/parse_url.h"
#include "tests/internet/exchange.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/import_patch.h"
#include "tests/support/process_usage.h"
#include "tests/support/real_servers.h"

#include <catch.hpp>

#include <array>
#include <functional>
#include <new>
#include <string>

using namespace velt::test;

namespace
{
using OpenPatch = ImportPatch<"InternetOpenW", decltype(::InternetOpenW)>;
using ConnectPatch = ImportPatch<"InternetConnectW", decltype(::InternetConnectW)>;
using OpenRequestPatch = ImportPatch<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>;
using CloseHandlePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;

/// A file in write mode.
class WrittenFile final : public CInternetFile
{
public:
    explicit WrittenFile(Exchange& exchange)
        : CInternetFile(
              velt::RegisteredHandle(::HttpOpenRequestW(exchange.connection->GetHandle(), L"PUT",
                                                        L"/", nullptr, nullptr, nullptr, 0, 0),
                                     exchange.connection->GetRegisteredHandle()),
              false, 1, L"", L"")
    {
    }

    using CInternetFile::SetWriteBufferSize;
};

void AskForText(DWORD code)
{
    std::array<wchar_t, 64> text{};
    CInternetException(code).GetErrorMessage(text.data(), 64);
}

/// Runs one part of the scenario; its own failures are the layer's, and any other is a defect.
void Try(const std::function<void()>& part)
{
    try
    {
        part();
    }
    catch (const CInternetException& e)
    {
        AskForText(e.GetCode());
    }
}

/// Everything that the layer does, once.
void RunScenario()
{
    Try([] {
        Exchange exchange(real_servers::HttpPort(), L"/body-8193");
        Try([&] { exchange.session.EnableStatusCallback(true); });
        DWORD timeoutMs = 5000;
        exchange.session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, &timeoutMs, sizeof(timeoutMs),
                                   0);
        Try([&] {
            exchange.Send();
            exchange.Status();
            DWORD length = 0;
            DWORD size = sizeof(length);
            exchange.file->QueryInfo(HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER, &length,
                                     &size, nullptr);
            exchange.file->GetLength();
            exchange.file->SetReadBufferSize(100);
            std::array<char, 300> bytes{};
            exchange.file->Read(bytes.data(), 10);
            exchange.file->Read(bytes.data(), 300);
            std::wstring line;
            exchange.file->ReadString(line);
        });
        Try([&] {
            exchange.connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0)
                ->Seek(0, FILE_BEGIN);
        });
        Try([&] {
            WrittenFile written(exchange);
            INTERNET_BUFFERSW buffers{};
            buffers.dwStructSize = sizeof(buffers);
            buffers.dwBufferTotal = 10;
            if (!::HttpSendRequestExW(written.GetHandle(), &buffers, nullptr, 0, 0))
            {
                return; // some systems crash when a request that was not sent is written
            }
            written.SetWriteBufferSize(4);
            written.Write("ab", 2);
            written.Write("cdefgh", 6);
            written.Write("ab", 2);
            written.Close();
        });
    });
    velt::ServiceType service{};
    std::wstring server;
    std::wstring object;
    INTERNET_PORT port = 0;
    velt::ParseURL(L"http://host/page", service, server, object, port);
    const CConnectionProperties properties;
    const CInternetProxy proxy;
    AskForText(ERROR_INTERNET_TIMEOUT); // whether or not the system has refused anything
}

/// Counts the internet handles that are opened and closed.
class HandleBalance
{
public:
    HandleBalance()
        : m_open("wininet.dll",
                 [this](const wchar_t* agent, DWORD type, const wchar_t* proxy,
                        const wchar_t* bypass, DWORD flags) {
                     return Opened(OpenPatch::Original(agent, type, proxy, bypass, flags));
                 }),
          m_connect("wininet.dll",
                    [this](HINTERNET session, const wchar_t* server, INTERNET_PORT port,
                           const wchar_t* user, const wchar_t* password, DWORD service, DWORD flags,
                           DWORD_PTR context) {
                        return Opened(ConnectPatch::Original(session, server, port, user, password,
                                                             service, flags, context));
                    }),
          m_request("wininet.dll",
                    [this](HINTERNET connection, const wchar_t* verb, const wchar_t* object,
                           const wchar_t* version, const wchar_t* referer, const wchar_t** accept,
                           DWORD flags, DWORD_PTR context) {
                        return Opened(OpenRequestPatch::Original(connection, verb, object, version,
                                                                 referer, accept, flags, context));
                    }),
          m_close("wininet.dll", [this](HINTERNET handle) {
              const BOOL closed = CloseHandlePatch::Original(handle);
              m_balance -= closed ? 1 : 0;
              return closed;
          })
    {
    }

    int Balance() const noexcept
    {
        return m_balance;
    }

private:
    HINTERNET Opened(HINTERNET handle) noexcept
    {
        m_balance += handle ? 1 : 0;
        return handle;
    }

    int m_balance = 0;
    OpenPatch m_open;
    ConnectPatch m_connect;
    OpenRequestPatch m_request;
    CloseHandlePatch m_close;
};

/// Runs the scenario while the first call of a function fails, then the second, until all have.
/// Returns how many calls there are in it.
template <FunctionName Name, class Signature>
struct FailInTurn;

template <FunctionName Name, class Result, class... Arguments>
struct FailInTurn<Name, Result WINAPI(Arguments...)>
{
    using Patch = ImportPatch<Name, Result WINAPI(Arguments...)>;

    static LONG Run(const char* dll, Result failure, DWORD error)
    {
        for (LONG failing = 1;; ++failing)
        {
            LONG calls = 0;
            {
                LONG call = 0;
                const Patch patch(dll, [&](Arguments... arguments) -> Result {
                    if (++call == failing)
                    {
                        ::SetLastError(error);
                        return failure;
                    }
                    return Patch::Original(arguments...);
                });
                RunScenario();
                calls = patch.Calls();
            }
            INFO(Name.text << " fails at call " << failing);
            REQUIRE(OpenHandles() == 0);
            if (calls < failing)
            {
                return calls;
            }
        }
    }
};

#define FAIL_IN_TURN(dll, function, failure, error) \
    CHECK(FailInTurn<#function, decltype(::function)>::Run(dll, failure, error) > 0)
} // namespace

TEST_CASE("internet: each call of the internet API fails in turn", "[internet]")
{
    FAIL_IN_TURN("wininet.dll", InternetOpenW, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    FAIL_IN_TURN("wininet.dll", InternetSetStatusCallbackW, INTERNET_INVALID_STATUS_CALLBACK,
                 ERROR_INVALID_HANDLE);
    FAIL_IN_TURN("wininet.dll", InternetSetOptionExW, FALSE, ERROR_INVALID_PARAMETER);
    FAIL_IN_TURN("wininet.dll", InternetConnectW, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    FAIL_IN_TURN("wininet.dll", HttpOpenRequestW, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    FAIL_IN_TURN("wininet.dll", HttpSendRequestW, FALSE, ERROR_INTERNET_CONNECTION_RESET);
    FAIL_IN_TURN("wininet.dll", HttpQueryInfoW, FALSE, ERROR_HTTP_HEADER_NOT_FOUND);
    FAIL_IN_TURN("wininet.dll", InternetQueryDataAvailable, FALSE,
                 ERROR_INTERNET_CONNECTION_ABORTED);
    FAIL_IN_TURN("wininet.dll", InternetReadFile, FALSE, ERROR_INTERNET_CONNECTION_ABORTED);
    FAIL_IN_TURN("wininet.dll", InternetWriteFile, FALSE, ERROR_INTERNET_CONNECTION_ABORTED);
    FAIL_IN_TURN("wininet.dll", InternetSetFilePointer, INVALID_SET_FILE_POINTER,
                 ERROR_INTERNET_INVALID_OPERATION);
    FAIL_IN_TURN("wininet.dll", InternetCanonicalizeUrlW, FALSE, ERROR_INSUFFICIENT_BUFFER);
    FAIL_IN_TURN("wininet.dll", InternetCrackUrlW, FALSE, ERROR_INTERNET_INVALID_URL);
}

TEST_CASE("internet: each call of the system fails in turn", "[internet]")
{
    FAIL_IN_TURN("kernel32.dll", LoadLibraryExW, nullptr, ERROR_MOD_NOT_FOUND);
    FAIL_IN_TURN("kernel32.dll", FormatMessageW, 0, ERROR_MR_MID_NOT_FOUND);
    FAIL_IN_TURN("advapi32.dll", RegOpenKeyExW, ERROR_ACCESS_DENIED, ERROR_SUCCESS);
    FAIL_IN_TURN("advapi32.dll", RegQueryValueExW, ERROR_ACCESS_DENIED, ERROR_SUCCESS);
    FAIL_IN_TURN("advapi32.dll", RegQueryValueExA, ERROR_ACCESS_DENIED, ERROR_SUCCESS);
}

TEST_CASE("internet: each allocation of memory fails in turn", "[internet]")
{
    RunScenario(); // what is made once, at the first use
    int failing = 0;
    bool failed = true;
    for (; failed; ++failing)
    {
        int balance = 0;
        {
            const HandleBalance handles;
            try
            {
                const FailingAllocation allocation(failing);
                RunScenario();
            }
            catch (const std::bad_alloc&)
            {
            }
            failed = FailingAllocation::HasFailed();
            balance = handles.Balance();
        }
        INFO("allocation " << failing << " fails");
        REQUIRE(OpenHandles() == 0);
        REQUIRE(balance == 0);
    }

    CHECK(failing > 20); // each object of the layer allocates
}

TEST_CASE("internet: many exchanges leave no handle of the system open", "[internet]")
{
    const auto runMany = [] {
        for (int i = 0; i < 50; ++i)
        {
            RunScenario();
        }
        return CurrentUsage().handles;
    };
    runMany(); // connections that are kept for the next request are made here
    const std::size_t before = runMany();
    const std::size_t after = runMany();
    CHECK(after <= before + 2);
    CHECK(OpenHandles() == 0);
}
