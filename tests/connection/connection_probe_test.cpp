#include "connection/connection_probe.h"

#include "connection/connection.h"
#include "foundation/reg_key.h"
#include "foundation/system_exception.h"
#include "tests/support/echo_stand_in.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tests/support/real_servers.h"

#include <winsock2.h>

#include <wininet.h>

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;
using velt::ConnectionProbe;

namespace
{
using FindPatch = EchoStandIn::FindPatch;
using LoadPatch = ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;
using QueryPatch = ImportPatch<"InternetQueryOptionW", decltype(::InternetQueryOptionW)>;
using FreePatch = ImportPatch<"GlobalFree", decltype(::GlobalFree)>;
using AttemptPatch = ImportPatch<"InternetAttemptConnect", decltype(::InternetAttemptConnect)>;
using CheckPatch = ImportPatch<"InternetCheckConnectionW", decltype(::InternetCheckConnectionW)>;

using AddressPatch = ImportPatch<"inet_addr", decltype(::inet_addr)>;

constexpr DWORD kPoison = 0xCDCDCDCD;
constexpr DWORD kCause = ERROR_INTERNET_TIMEOUT;

/// A copy as the internet API hands texts out; null for null.
wchar_t* Allocated(const wchar_t* text)
{
    if (!text)
    {
        return nullptr;
    }
    const std::size_t bytes = (std::wstring_view(text).size() + 1) * sizeof(wchar_t);
    auto* const copy = static_cast<wchar_t*>(::GlobalAlloc(GMEM_FIXED, bytes));
    std::memcpy(copy, text, bytes);
    return copy;
}

/// Puts a configuration in the place of the system's, and counts the texts that are freed.
class Configuration
{
public:
    Configuration(const wchar_t* url, const wchar_t* proxy, const wchar_t* bypass = nullptr)
        : m_query(
              "wininet.dll",
              [=, this](HINTERNET handle, DWORD option, void* buffer, DWORD* length) -> WINBOOL {
                  if (option != INTERNET_OPTION_PER_CONNECTION_OPTION)
                  {
                      return QueryPatch::Original(handle, option, buffer, length);
                  }
                  auto& list = *static_cast<INTERNET_PER_CONN_OPTION_LISTW*>(buffer);
                  wasRight = !handle && *length == sizeof(list) && !list.pszConnection &&
                             list.dwSize == sizeof(list);
                  options.clear();
                  for (DWORD i = 0; i < list.dwOptionCount; ++i)
                  {
                      auto& entry = list.pOptions[i];
                      options.push_back(entry.dwOption);
                      switch (entry.dwOption)
                      {
                      case INTERNET_PER_CONN_AUTOCONFIG_URL:
                          entry.Value.pszValue = Allocated(url);
                          break;
                      case INTERNET_PER_CONN_PROXY_SERVER:
                          entry.Value.pszValue = Allocated(proxy);
                          break;
                      case INTERNET_PER_CONN_PROXY_BYPASS:
                          entry.Value.pszValue = Allocated(bypass);
                          break;
                      default:
                          entry.Value.dwValue = 0xFFFF; // a number, not a text
                      }
                  }
                  return TRUE;
              }),
          m_free("kernel32.dll", [this](HGLOBAL memory) -> HGLOBAL {
              freed += memory != nullptr;
              return FreePatch::Original(memory);
          })
    {
    }

    bool wasRight = false;
    std::vector<DWORD> options;
    int freed = 0;

private:
    QueryPatch m_query;
    FreePatch m_free;
};

/// The user's own proxy setting, until the end of the scope.
class UserProxy
{
public:
    explicit UserProxy(const wchar_t* server)
    {
        const DWORD on = 1;
        Set(L"ProxyEnable", REG_DWORD, &on, sizeof(on));
        Set(L"ProxyServer", REG_SZ, server,
            static_cast<DWORD>((std::wstring_view(server).size() + 1) * sizeof(wchar_t)));
    }

    UserProxy(const UserProxy&) = delete;
    UserProxy& operator=(const UserProxy&) = delete;

    ~UserProxy()
    {
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kKey, L"ProxyServer");
        const DWORD off = 0;
        Set(L"ProxyEnable", REG_DWORD, &off, sizeof(off));
    }

private:
    static constexpr wchar_t kKey[] =
        L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

    static void Set(const wchar_t* name, DWORD type, const void* data, DWORD size)
    {
        REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, kKey, name, type, data, size) ==
                ERROR_SUCCESS);
    }
};

std::wstring RealUrl()
{
    return L"http://127.0.0.1:" + std::to_wstring(real_servers::HttpPort()) + L"/plain.txt";
}
} // namespace

TEST_CASE("ConnectionProbe: IsConnected hands the system's answer and flags out", "[connection]")
{
    const ConnectionProbe probe;
    DWORD expectedFlags = 0;
    const bool isConnected = ::InternetGetConnectedState(&expectedFlags, 0) != FALSE;
    DWORD flags = kPoison;
    CHECK(probe.IsConnected(&flags) == (isConnected ? S_OK : S_FALSE));
    CHECK(flags == expectedFlags);
    CHECK(probe.IsConnected(nullptr) == E_POINTER);
}

namespace
{
DWORD g_flagsBefore = kPoison;
BOOL g_state = FALSE;

BOOL WINAPI ConnectedState(DWORD* flags, DWORD reserved)
{
    g_flagsBefore = *flags;
    *flags = 0x40 + reserved;
    return g_state;
}
} // namespace

TEST_CASE("ConnectionProbe: IsConnected writes 0 first and says no with S_FALSE", "[connection]")
{
    g_state = GENERATE(FALSE, TRUE, 2);
    g_flagsBefore = kPoison;
    const FindPatch patch("kernel32.dll", [](HMODULE module, const char* name) -> FARPROC {
        return std::string(name) == "InternetGetConnectedState"
                   ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&ConnectedState))
                   : FindPatch::Original(module, name);
    });
    const ConnectionProbe probe;
    DWORD flags = kPoison;
    CHECK(probe.IsConnected(&flags) == (g_state ? S_OK : S_FALSE));
    CHECK(g_flagsBefore == 0);
    CHECK(flags == 0x40);
}

TEST_CASE("ConnectionProbe: both functions are looked for when the library is found",
          "[connection]")
{
    std::vector<std::string> asked;
    const FindPatch patch("kernel32.dll", [&](HMODULE module, const char* name) -> FARPROC {
        if (module == ::GetModuleHandleW(L"wininet.dll"))
        {
            asked.push_back(name);
        }
        return FindPatch::Original(module, name);
    });
    SECTION("found")
    {
        const ConnectionProbe probe;
        CHECK(asked ==
              std::vector<std::string>{"InternetGetConnectedState", "InternetCheckConnection"});
        DWORD flags = 0;
        DWORD state = 0;
        asked.clear();
        probe.IsConnected(&flags);
        probe.CheckConnection(L"\x0001", &state);
        CHECK(asked.empty());
    }
    SECTION("not found")
    {
        const LoadPatch load("kernel32.dll", [](auto...) -> HMODULE { return nullptr; });
        const ConnectionProbe probe;
        CHECK(asked.empty());
        CHECK(patch.Calls() == 0);
    }
}

TEST_CASE("ConnectionProbe: without the function it is not connected, quietly", "[connection]")
{
    DWORD flags = kPoison;
    SECTION("the function is missing")
    {
        const FindPatch patch("kernel32.dll", [](HMODULE module, const char* name) -> FARPROC {
            return std::string(name) == "InternetGetConnectedState"
                       ? nullptr
                       : FindPatch::Original(module, name);
        });
        const ConnectionProbe probe;
        CHECK(probe.IsConnected(&flags) == S_FALSE);
    }
    SECTION("every library is missing")
    {
        const LoadPatch patch("kernel32.dll", [](auto...) -> HMODULE { return nullptr; });
        const ConnectionProbe probe;
        CHECK(probe.IsConnected(&flags) == S_FALSE);
        CHECK(probe.Ping("127.0.0.1", 100) == E_FAIL);
    }
    CHECK(flags == 0);
}

TEST_CASE("ConnectionProbe: a URL that answers is reached, with state 0", "[connection]")
{
    const ConnectionProbe probe;
    DWORD state = kPoison;
    CHECK(probe.CheckConnection(RealUrl().c_str(), &state) == S_OK);
    CHECK(state == 0);
    CHECK(probe.CheckConnection(RealUrl().c_str(), nullptr) == E_POINTER);
}

TEST_CASE("ConnectionProbe: a URL that does not answer fails with the system's error",
          "[connection]")
{
    const ConnectionProbe probe;
    DWORD state = kPoison;
    SECTION("nobody listens")
    {
        const RefusingPort port;
        const std::wstring url = L"http://127.0.0.1:" + std::to_wstring(port.Port()) + L"/";
        CHECK(probe.CheckConnection(url.c_str(), &state) == E_FAIL);
    }
    SECTION("no such name")
    {
        CHECK(probe.CheckConnection(L"http://no.such.host.invalid/", &state) == E_FAIL);
    }
    SECTION("no URL at all")
    {
        CHECK(probe.CheckConnection(L"\x0001\x0002", &state) == E_FAIL);
    }
    CHECK(state != 0);
    CHECK(state != kPoison);
    CHECK(state != 0xFFFFFFFF);
}

TEST_CASE("ConnectionProbe: the URL is tried by force, and its error is handed out raw",
          "[connection]")
{
    const Configuration none(nullptr, nullptr);
    const auto [attempt, isReached, expected, expectedState] = GENERATE(
        table<DWORD, BOOL, HRESULT, DWORD>({{ERROR_SUCCESS, TRUE, S_OK, 0},
                                            {ERROR_SUCCESS, FALSE, E_FAIL, kCause},
                                            {ERROR_INTERNET_DISCONNECTED, TRUE, E_FAIL, kCause}}));
    DWORD attemptReserved = kPoison;
    const AttemptPatch attempts("wininet.dll", [&, result = attempt](DWORD reserved) -> DWORD {
        attemptReserved = reserved;
        ::SetLastError(kCause);
        return result;
    });
    std::wstring tried;
    DWORD triedFlags = 0;
    DWORD triedReserved = kPoison;
    const CheckPatch checks(
        "wininet.dll",
        [&, result = isReached](const wchar_t* url, DWORD flags, DWORD reserved) -> WINBOOL {
            tried = url;
            triedFlags = flags;
            triedReserved = reserved;
            ::SetLastError(kCause);
            return result;
        });
    const ConnectionProbe probe;
    DWORD state = kPoison;
    CHECK(probe.CheckConnection(L"http://host.invalid/", &state) == expected);
    CHECK(state == expectedState);
    CHECK(attempts.Calls() == 1);
    CHECK(attemptReserved == 0);
    CHECK(checks.Calls() == (attempt == ERROR_SUCCESS ? 1 : 0));
    if (attempt == ERROR_SUCCESS)
    {
        CHECK(tried == L"http://host.invalid/");
        CHECK(triedFlags == FLAG_ICC_FORCE_CONNECTION);
        CHECK(triedReserved == 0);
    }
}

TEST_CASE("ConnectionProbe: a configured proxy counts as connected, the error is told",
          "[connection]")
{
    const CheckPatch checks("wininet.dll", [](auto...) -> WINBOOL {
        ::SetLastError(kCause);
        return FALSE;
    });
    const ConnectionProbe probe;
    DWORD state = kPoison;
    SECTION("by an answer of the system")
    {
        const Configuration proxy(nullptr, L"gateway:8080");
        CHECK(probe.CheckConnection(L"http://host.invalid/", &state) == S_OK);
    }
    SECTION("by the user's settings")
    {
        const UserProxy proxy(L"gateway.invalid:8080");
        std::wstring text;
        if (ConnectionProbe::QueryProxySettings(text))
        {
            CHECK(text.find(L"gateway.invalid:8080") != text.npos);
            CHECK(probe.CheckConnection(L"http://host.invalid/", &state) == S_OK);
        }
        else
        {
            WARN("the system does not tell the user's proxy setting at once");
            CHECK(probe.CheckConnection(L"http://host.invalid/", &state) == E_FAIL);
        }
    }
    CHECK(state == kCause);
}

TEST_CASE("ConnectionProbe: a library that is loaded late and missing leaves its answers to others",
          "[connection]")
{
    // As velt.exe gets it: the call itself throws.
    const auto missing = [](auto...) -> DWORD {
        throw SystemException::Win32(ERROR_MOD_NOT_FOUND);
    };
    const ConnectionProbe probe;
    {
        const AttemptPatch attempts("wininet.dll", missing);
        DWORD state = kPoison;
        CHECK(probe.CheckConnection(L"http://host.invalid/", &state) == E_FAIL);
        CHECK(state == ERROR_MOD_NOT_FOUND);
        const Configuration proxy(nullptr, L"gateway:8080");
        CHECK(probe.CheckConnection(L"http://host.invalid/", &state) == S_OK);
    }
    const AddressPatch addresses("ws2_32.dll", missing);
    CHECK(probe.Ping("127.0.0.1", 100) == E_FAIL);
    CHECK(addresses.Calls() == 1);
}

TEST_CASE("ConnectionProbe: the configuration is the URL and the proxy, appended and freed",
          "[connection]")
{
    struct Row
    {
        const wchar_t* url;
        const wchar_t* proxy;
        const wchar_t* bypass;
        const wchar_t* text;
        bool isConfigured;
        int texts;
    };
    const Row row = GENERATE(values<Row>(
        {{nullptr, nullptr, nullptr, L"before:", false, 0},
         {L"http://host/a.pac", nullptr, nullptr, L"before:http://host/a.pac", true, 1},
         {nullptr, L"gw:80", nullptr, L"before:gw:80", true, 1},
         {L"http://host/a.pac", L"gw:80", nullptr, L"before:http://host/a.pacgw:80", true, 2},
         {nullptr, L"gw:80", L"<local>", L"before:gw:80", true, 2},
         {L"", nullptr, nullptr, L"before:", false, 1}, // an empty text is none
         {nullptr, L"", nullptr, L"before:", false, 1},
         {L"", L"", L"", L"before:", false, 3},
         {L"", L"gw:80", nullptr, L"before:gw:80", true, 2},
         {nullptr, nullptr, L"<local>", L"before:", false, 1}}));
    Configuration configuration(row.url, row.proxy, row.bypass);
    std::wstring text = L"before:";
    CHECK(ConnectionProbe::QueryProxySettings(text) == row.isConfigured);
    CHECK(text == row.text);
    CHECK(configuration.wasRight);
    CHECK(configuration.options == std::vector<DWORD>{4, 5, 1, 3, 2});
    CHECK(configuration.freed == row.texts);
}

TEST_CASE("ConnectionProbe: a query that fails is no configuration", "[connection]")
{
    const QueryPatch patch("wininet.dll", [](auto...) -> WINBOOL { return FALSE; });
    std::wstring text = L"before";
    CHECK_FALSE(ConnectionProbe::QueryProxySettings(text));
    CHECK(text == L"before");
}

TEST_CASE("ConnectionProbe: Ping takes dotted addresses only, and sends nothing to a name",
          "[connection]")
{
    const std::string address =
        GENERATE(values<std::string>({"localhost", "no.such.host.invalid", "", "127.0.0.1.5",
                                      "127.0.0.256", "::1", "127.0.0.1x", "255.255.255.255"}));
    CAPTURE(address);
    const EchoStandIn system; // which would answer
    const ConnectionProbe probe;
    CHECK(probe.Ping(address.c_str(), 100) == E_FAIL);
    CHECK(probe.Ping(nullptr, 100) == E_FAIL);
    CHECK(system.created == 0);
    CHECK(system.sent == 0);
    CHECK(probe.Ping("127.0.0.1", 100) == S_OK);
    CHECK(system.sent == 1);
}

TEST_CASE("ConnectionProbe: this machine answers an echo, where echoes are allowed", "[connection]")
{
    const ConnectionProbe probe;
    const HRESULT result = probe.Ping("127.0.0.1", 2000);
    if (result != S_OK)
    {
        WARN("no echo from 127.0.0.1: this user may not send any");
    }
    CHECK((result == S_OK || result == E_FAIL));
}

TEST_CASE("CConnection: it answers as the probe does and holds its owner's data", "[connection]")
{
    struct Data
    {
        int value = 5;
    };
    CConnection<Data> connection;
    CHECK(connection.Data().value == 5);
    connection.Data().value = 6;
    CHECK(connection.Data().value == 6);
    DWORD state = kPoison;
    CHECK(connection.CheckConnection(RealUrl().c_str(), &state) == S_OK);
    CHECK(state == 0);
}
