// What the service does when the platform fails, and the names under which its members trace.

#include "service/velt_http_service.h"

#include "service/apartment.h"
#include "service/cookie_codec.h"
#include "service/cookie_store.h"
#include "tests/service/service_objects.h"
#include "tests/service/worker_fixture.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/import_patch.h"
#include "tests/support/recording_sink.h"
#include "tests/support/stand_in_locator.h"
#include "tests/support/test_module.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"

#include <olectl.h>
#include <wininet.h>

#include <catch.hpp>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;
using velt::MakeBstr;

namespace
{
using GetCookieW = ImportPatch<"InternetGetCookieW", decltype(::InternetGetCookieW)>;
using GetCookieA = ImportPatch<"InternetGetCookieA", decltype(::InternetGetCookieA)>;
using SetCookieW = ImportPatch<"InternetSetCookieW", decltype(::InternetSetCookieW)>;
using SetCookieA = ImportPatch<"InternetSetCookieA", decltype(::InternetSetCookieA)>;
using Create = ImportPatch<"CoCreateInstance", decltype(::CoCreateInstance)>;

struct FailureFixture
{
    FailureFixture()
    {
        velt::ThrowIfFailed(velt::CreateComObject<CVeltHTTPService>(service.GetAddressOf()));
    }

    FailureFixture(const FailureFixture&) = delete;
    FailureFixture& operator=(const FailureFixture&) = delete;

    ~FailureFixture()
    {
        service.Reset();
        WorkerFixture::Await([&] { return module.LockCount() == 0; });
    }

    const ComApartment apartment;
    TraceRecorder trace;
    TestModule module;
    ComPtr<IVeltHTTPService> service;
    const velt::UniqueBstr url = MakeBstr(L"http://failures.velt.example/");
    const velt::UniqueBstr text = MakeBstr(L"t");
};

constexpr wchar_t kManyCookies[] = L"http://many.velt.example/";

/// The cookie of the safe store with "v" under the name "n", without its attributes.
std::string SafeCookie()
{
    std::string cookie;
    const SetCookieA patch("wininet.dll", [&](auto, auto, const char* data) {
        cookie = std::string(data).substr(0, std::string(data).find(';'));
        return TRUE;
    });
    velt::CookieStore().Write(kManyCookies, L"n", L"v");
    return cookie;
}

HRESULT NoInstance(REFCLSID, IUnknown*, DWORD, REFIID, void** object)
{
    *object = nullptr;
    return REGDB_E_CLASSNOTREG;
}

} // namespace

TEST_CASE("The service: each member traces under its name", "[service]")
{
    FailureFixture f;
    BSTR out = nullptr;
    VARIANT_BOOL flag = VARIANT_FALSE;
    IVeltHTTPService& s = *f.service.Get();
    const BSTR url = f.url.Get();
    const BSTR t = f.text.Get();
    const std::vector<std::pair<std::string, std::function<HRESULT()>>> members = {
        {"StartService", [&] { return s.StartService(); }},
        {"WriteData", [&] { return s.WriteData(url, t, t); }},
        {"ReadData", [&] { return s.ReadData(url, t, &out); }},
        {"SafeWriteData", [&] { return s.SafeWriteData(url, t, t); }},
        {"SafeReadData", [&] { return s.SafeReadData(url, t, &out); }},
        {"get_IsConnected", [&] { return s.get_IsConnected(&flag); }},
        {"get_Redirect", [&] { return s.get_Redirect(&out); }},
        {"put_domain", [&] { return s.put_domain(nullptr); }},
        {"GetServiceTag", [&] { return s.GetServiceTag(&out); }},
        {"InvokeUpdate", [&] { return s.InvokeUpdate(t, t, 1033, t); }},
        {"IsUpdateOrMessageAvailable",
         [&] { return s.IsUpdateOrMessageAvailable(t, t, 1033, VARIANT_FALSE, &flag); }},
        {"GetDomain", [&] { return s.GetDomain(&out); }},
    };
    for (const auto& [name, call] : members)
    {
        INFO(name);
        out = nullptr;
        const std::string line = "CVeltHTTPService::" + name + " - enter";
        const std::size_t before = f.trace.Count(line);
        CHECK(call() == S_OK);
        CHECK(f.trace.Count(line) == before + 1);
        CHECK(f.trace.Count("CVeltHTTPService::" + name + " - return = 0") >= before + 1);
        ::SysFreeString(out);
    }
    CHECK(f.trace.Count("CVeltHTTPService::StartUpdateService - enter") == 1); // of StartService
}

TEST_CASE("The service: a text that cannot be allocated is out of memory", "[service]")
{
    FailureFixture f;
    f.service->WriteData(f.url.Get(), f.text.Get(), f.text.Get());
    f.service->SafeWriteData(f.url.Get(), f.text.Get(), f.text.Get());
    ImportPatch<"SysAllocStringLen", decltype(::SysAllocStringLen)> none(
        "oleaut32.dll", [](const wchar_t*, UINT) { return BSTR{}; });
    BSTR out = PoisonText();
    CHECK(f.service->ReadData(f.url.Get(), f.text.Get(), &out) == E_OUTOFMEMORY);
    CHECK(f.service->SafeReadData(f.url.Get(), f.text.Get(), &out) == E_OUTOFMEMORY);
    CHECK(f.service->get_Redirect(&out) == E_OUTOFMEMORY);
    CHECK(f.service->GetDomain(&out) == E_OUTOFMEMORY);
    CHECK(f.service->StartService() == E_OUTOFMEMORY);
    const LONG before = none.Calls();
    const auto told = [&] {
        const std::vector<TraceRecorder::Message> messages = f.trace.Messages();
        return std::count_if(messages.begin(), messages.end(), [](const auto& message) {
            return message.thread == ::GetCurrentThreadId() &&
                   message.text.starts_with("failed: 0x8007000E ");
        });
    };
    const std::ptrdiff_t toldBefore = told();
    CHECK(f.service->GetServiceTag(&out) == S_OK); // a step of it that fails
    CHECK(none.Calls() > before);
    CHECK(out == PoisonText());
    CHECK(told() == toldBefore + 1);
}

TEST_CASE("Notify: without memory for its text nobody is told", "[service]")
{
    RecordingSink sink;
    FailureFixture f;
    Advise(f.service.Get(), &sink);
    {
        ImportPatch<"SysAllocStringLen", decltype(::SysAllocStringLen)> none(
            "oleaut32.dll", [](const wchar_t*, UINT) { return BSTR{}; });
        CHECK(f.service->InvokeUpdate(f.text.Get(), f.text.Get(), 1033, nullptr) == S_OK);
        CHECK(none.Calls() >= 1);
    }
    CHECK(sink.Count() == 0);
    CHECK(f.service->InvokeUpdate(f.text.Get(), f.text.Get(), 1033, nullptr) == S_OK);
    CHECK(sink.Count() == 1);
}

TEST_CASE("Advise: a sink that cannot be stored is past the limit", "[service]")
{
    RecordingSink sink;
    FailureFixture f;
    const auto point = EventsOf(f.service.Get());
    DWORD cookie = 0xCDCDCDCD;
    const std::size_t before = f.trace.Messages().size();
    {
        const Create none("ole32.dll", NoInstance); // no global interface table
        CHECK(point->Advise(&sink, &cookie) == CONNECT_E_ADVISELIMIT);
    }
    CHECK(cookie == 0);
    // One failure, and one line of it: that of the cause.
    const auto messages = f.trace.Messages();
    REQUIRE(messages.size() == before + 3);
    CHECK(messages[before].text == "CVeltHTTPService::Advise - enter");
    CHECK(messages[before + 1].level == 1);
    CHECK_THAT(messages[before + 1].text, Catch::StartsWith("failed: 0x80040154 "));
    CHECK(messages[before + 2].text == "CVeltHTTPService::Advise - return = -2147220991");
    CHECK(sink.References() == 1);
    CHECK(point->Advise(&sink, &cookie) == S_OK);
}

TEST_CASE("WriteData: the platform gets the name as it stands", "[service]")
{
    FailureFixture f;
    struct Given
    {
        std::wstring url;
        const wchar_t* name;
        std::wstring value;
    };
    std::vector<Given> given;
    const SetCookieW patch("wininet.dll",
                           [&](const wchar_t* url, const wchar_t* name, const wchar_t* value) {
                               given.push_back({url, name, value});
                               return TRUE;
                           });
    const velt::UniqueBstr data = MakeBstr(L"name=value");
    CHECK(f.service->WriteData(f.url.Get(), f.text.Get(), data.Get()) == S_OK);
    CHECK(f.service->WriteData(f.url.Get(), nullptr, data.Get()) == S_OK);
    CHECK(f.service->WriteData(nullptr, nullptr, nullptr) == S_OK);
    REQUIRE(given.size() == 3);
    CHECK((given[0].url == f.url.Get()));
    CHECK(given[0].name == f.text.Get());
    CHECK((given[0].value == L"name=value"));
    CHECK(given[1].name == nullptr); // the data carries it
    CHECK((given[1].value == L"name=value"));
    CHECK(given[2].url.empty()); // what the platform cannot do without is an empty text
    CHECK(given[2].value.empty());
}

TEST_CASE("WriteData: with a null name the value is the whole cookie", "[service]")
{
    FailureFixture f;
    const velt::UniqueBstr url = MakeBstr(L"http://whole.velt.example/");
    CHECK(f.service->WriteData(url.Get(), nullptr, MakeBstr(L"name=value").Get()) == S_OK);

    BSTR out = nullptr;
    CHECK(f.service->ReadData(url.Get(), nullptr, &out) == S_OK);
    CHECK((Taken(out) == L"name=value"));
}

TEST_CASE("ReadData: asks for the size, then for all cookies, without a name", "[service]")
{
    FailureFixture f;
    std::vector<std::string> calls;
    DWORD sizeGiven = 0;
    const GetCookieW patch(
        "wininet.dll", [&](const wchar_t* url, const wchar_t* name, wchar_t* text, DWORD* size) {
            calls.push_back(std::wstring(url) == f.url.Get() && !name ? (text ? "text" : "size")
                                                                      : "wrong");
            if (!text)
            {
                *size = 7;
                return TRUE;
            }
            sizeGiven = *size;
            std::memcpy(text, L"a=b; c=", 7 * sizeof(wchar_t)); // without a NUL
            return TRUE;
        });
    BSTR out = nullptr;
    CHECK(f.service->ReadData(f.url.Get(), f.text.Get(), &out) == S_OK);
    CHECK((Taken(out) == L"a=b; c="));
    CHECK(sizeGiven == 7);
    CHECK(calls == std::vector<std::string>{"size", "text"});
}

TEST_CASE("ReadData: each failing call leaves the out value as it was", "[service]")
{
    FailureFixture f;
    const std::string failing = GENERATE(as<std::string>(), "size", "empty", "text");
    const GetCookieW patch("wininet.dll", [&](auto, auto, wchar_t* text, DWORD* size) {
        *size = failing == "empty" ? 0 : 4;
        ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return failing == (text ? "text" : "size") ? FALSE : TRUE;
    });
    BSTR out = PoisonText();
    CHECK(f.service->ReadData(f.url.Get(), f.text.Get(), &out) == S_OK);
    CHECK(out == PoisonText());
    CHECK(patch.Calls() == (failing == "text" ? 2 : 1));
}

TEST_CASE("CookieStore: the cookie ends 183 days after it was made, by local time", "[service]")
{
    TIME_ZONE_INFORMATION zone{};
    REQUIRE(::GetTimeZoneInformation(&zone) != TIME_ZONE_ID_INVALID);
    if (zone.Bias == 0) // the build gives this program a zone of its own
    {
        WARN("local time is universal time here: the one would pass for the other");
    }
    const FailureFixture f;
    std::string data;
    std::string url;
    bool named = true;
    const SetCookieA patch("wininet.dll",
                           [&](const char* cookieUrl, const char* name, const char* cookieData) {
                               url = cookieUrl;
                               named = name != nullptr;
                               data = cookieData;
                               return TRUE;
                           });
    velt::CookieStore store;
    store.SetDomain(L".velt.example");
    CHECK(store.Write(L"http://expiry.velt.example/", L"n", L"v"));
    CHECK(url == "http://expiry.velt.example/");
    CHECK_FALSE(named); // the data carries the pair itself
    CHECK(data.starts_with("velt="));
    const std::size_t domain = data.find(";domain=.velt.example;expires=");
    REQUIRE(domain != std::string::npos);
    const std::string date = data.substr(data.find("expires=") + 8);

    // The platform reads the date; the difference to local time is as long as it is said to be.
    SYSTEMTIME read{};
    REQUIRE(::InternetTimeToSystemTimeA(date.c_str(), &read, 0));
    FILETIME end{};
    REQUIRE(::SystemTimeToFileTime(&read, &end));
    SYSTEMTIME now{};
    ::GetSystemTime(&now);
    FILETIME universal{};
    ::SystemTimeToFileTime(&now, &universal);
    const auto ticks = [](const FILETIME& time) {
        return static_cast<LONGLONG>(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime);
    };
    FILETIME later{};
    const LONGLONG then = ticks(universal) + 183LL * 24 * 3600 * 10'000'000;
    later.dwLowDateTime = static_cast<DWORD>(then);
    later.dwHighDateTime = static_cast<DWORD>(then >> 32);
    SYSTEMTIME laterUniversal{};
    SYSTEMTIME laterLocal{};
    REQUIRE(::FileTimeToSystemTime(&later, &laterUniversal));
    REQUIRE(::SystemTimeToTzSpecificLocalTime(nullptr, &laterUniversal, &laterLocal));
    FILETIME local{};
    ::SystemTimeToFileTime(&laterLocal, &local);
    // As long as a loaded machine may take between the two looks at the clock.
    const LONGLONG seconds = (ticks(local) - ticks(end)) / 10'000'000;
    CHECK(seconds >= 0);
    CHECK(seconds <= 300);
}

TEST_CASE("CookieStore: an empty domain is not written", "[service]")
{
    FailureFixture f;
    std::string data;
    const SetCookieA patch("wininet.dll", [&](auto, auto, const char* cookieData) {
        data = cookieData;
        return TRUE;
    });
    velt::CookieStore store;
    CHECK(store.Write(L"http://expiry.velt.example/", L"n", L"v"));
    CHECK(data.find("domain") == std::string::npos);
    CHECK(data.find(";expires=") != std::string::npos);
}

TEST_CASE("CookieStore: a URL or a domain that the code page cannot spell is refused", "[service]")
{
    FailureFixture f;
    // Halves of surrogate pairs are in no code page. Replaced, they would be one host.
    const std::wstring spelt = L"http://spelt.velt.example/";
    const std::wstring unspelt =
        L"http://" + std::wstring(1, static_cast<wchar_t>(0xD800)) + L".velt.example/";
    const SetCookieA set("wininet.dll", [](auto...) { return TRUE; });
    const GetCookieA get("wininet.dll", [](auto...) {
        ::SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    });
    velt::CookieStore store;
    CHECK_FALSE(store.Write(unspelt, L"n", L"v"));
    CHECK_FALSE(store.Read(unspelt, L"n"));
    CHECK(set.Calls() == 0);
    CHECK(get.Calls() == 0);
    CHECK(f.trace.Count("CookieStore: the URL is not in the code page", 1) == 2);
    store.SetDomain(L"." + std::wstring(1, static_cast<wchar_t>(0xDFFF)) + L".example");
    CHECK_FALSE(store.Write(spelt, L"n", L"v"));
    CHECK(set.Calls() == 0);
    CHECK(f.trace.Count("CookieStore: the domain is not in the code page", 1) == 1);
    store.SetDomain(L".velt.example");
    CHECK(store.Write(spelt, L"n", L"v"));
    CHECK(set.Calls() == 1);
}

TEST_CASE("CookieStore: without a date no cookie is written", "[service]")
{
    FailureFixture f;
    const SetCookieA set("wininet.dll", [](auto...) { return TRUE; });
    const ImportPatch<"FileTimeToSystemTime", decltype(::FileTimeToSystemTime)> none(
        "kernel32.dll", [](const FILETIME*, SYSTEMTIME*) {
            ::SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        });
    CHECK_FALSE(velt::CookieStore().Write(f.url.Get(), L"n", L"v"));
    CHECK(set.Calls() == 0); // a cookie without a date would end with the session
    CHECK(f.trace.Count("FileTimeToSystemTime failed: 87", 1) == 1);
}

TEST_CASE("CookieStore: cookies that cannot be read are not written over", "[service]")
{
    FailureFixture f;
    const GetCookieA unreadable("wininet.dll", [](auto...) {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    const SetCookieA patch("wininet.dll", [](auto...) { return TRUE; });
    velt::CookieStore store;
    CHECK_FALSE(store.Write(L"http://a.velt.example/", L"n", L"v"));
    CHECK_FALSE(store.Read(L"http://a.velt.example/", L"n"));
    CHECK(patch.Calls() == 0);
    CHECK(f.trace.Count("InternetGetCookieA failed: 5", 1) == 2);
}

TEST_CASE("CookieStore: a store that refuses is told", "[service]")
{
    FailureFixture f;
    const SetCookieA patch("wininet.dll", [](auto...) {
        ::SetLastError(ERROR_INVALID_OPERATION);
        return FALSE;
    });
    velt::CookieStore store;
    CHECK_FALSE(store.Write(L"http://refused.velt.example/", L"n", L"v"));
    CHECK(f.trace.Count("InternetSetCookieA failed: 4317", 1) == 1);
}

TEST_CASE("CookieStore: more cookies than expected are read whole", "[service]")
{
    FailureFixture f;
    const std::string all = "big=" + std::string(50'000, 'x') + "; " + SafeCookie();
    // The platform tells the size it needs; one that keeps growing is given up.
    const bool grows = GENERATE(false, true);
    DWORD most = 0;
    const GetCookieA patch("wininet.dll", [&](auto, auto, char* text, DWORD* size) {
        most = std::max(most, *size);
        if (grows || *size < all.size() + 1)
        {
            *size = grows ? *size * 2 : static_cast<DWORD>(all.size() + 1);
            ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::memcpy(text, all.c_str(), all.size() + 1);
        *size = static_cast<DWORD>(all.size());
        return TRUE;
    });
    velt::CookieStore store;
    CHECK((store.Read(kManyCookies, L"n") == L"v") == !grows);
    CHECK(patch.Calls() < 20);
    CHECK(most <= 1 << 24); // bytes
    CHECK(f.trace.Count("InternetGetCookieA never has room enough", 1) == (grows ? 1 : 0));
}

TEST_CASE("CookieStore: cookies of 16 MiB are read, and no more", "[service]")
{
    constexpr DWORD kMost = 1 << 24;
    constexpr DWORD kForOthers = 2 * velt::kMaxCookieBytes; // they write meanwhile
    FailureFixture f;
    const std::string all = SafeCookie();
    const DWORD asked = kMost - kForOthers + GENERATE(0u, 1u);
    const GetCookieA patch("wininet.dll", [&](auto, auto, char* text, DWORD* size) {
        if (*size < asked)
        {
            *size = asked;
            ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::memcpy(text, all.c_str(), all.size() + 1);
        return TRUE;
    });
    const bool fits = asked + kForOthers <= kMost;
    CHECK((velt::CookieStore().Read(kManyCookies, L"n") == L"v") == fits);
    CHECK(patch.Calls() == (fits ? 2 : 1));
}

TEST_CASE("WriteData: a platform that refuses is told", "[service]")
{
    FailureFixture f;
    const SetCookieW patch("wininet.dll", [](auto...) {
        ::SetLastError(ERROR_INVALID_OPERATION);
        return FALSE;
    });
    CHECK(f.service->WriteData(f.url.Get(), f.text.Get(), f.text.Get()) == S_OK);
    CHECK(f.trace.Count("InternetSetCookieW failed: 4317", 1) == 1);
}

TEST_CASE("CookieStore: a value that no cookie can hold is told", "[service]")
{
    FailureFixture f;
    velt::CookieStore store;
    const std::wstring url = L"http://full.velt.example/";
    const std::size_t size =
        GENERATE(as<std::size_t>(), 4000, 5000); // found once it is encoded, and at a glance
    CHECK_FALSE(store.Write(url, L"n", std::wstring(size, L'v')));
    CHECK(f.trace.Count("CookieStore::Write refused: no cookie can hold the value", 1) == 1);
}

TEST_CASE("GetServiceTag: a step that fails is told", "[service]")
{
    FailureFixture f;
    StandInLocator locator;
    const auto [step, line] = GENERATE(table<std::string, std::string>({
        {"CreateInstance", "the management locator failed: 0x80004005"},
        {"ConnectServer", "ConnectServer failed: 0x80004005"},
        {"ExecQuery", "ExecQuery failed: 0x80004005"},
        {"Next", "Next failed: 0x80004005"},
        {"Get", "Get failed: 0x80004005"},
    }));
    locator.failing = step;
    BSTR tag = PoisonText();
    CHECK(f.service->GetServiceTag(&tag) == S_OK);
    CHECK(tag == PoisonText());
    CHECK(f.trace.Count(line, 1) == 1);
}

TEST_CASE("GetServiceTag: each proxy may act for the user before it is called", "[service]")
{
    FailureFixture f;
    StandInLocator locator;
    locator.serialNumber = [](VARIANT* value) { ::VariantInit(value); };
    const HRESULT answer = GENERATE(S_OK, E_NOINTERFACE); // as objects without a proxy have it
    const ImportPatch<"CoSetProxyBlanket", decltype(::CoSetProxyBlanket)> patch(
        "ole32.dll", [&](IUnknown* proxy, DWORD authentication, DWORD authorisation, OLECHAR* name,
                         DWORD level, DWORD impersonation, void* identity, DWORD capabilities) {
            const bool isPlain = proxy && authentication == RPC_C_AUTHN_WINNT &&
                                 authorisation == RPC_C_AUTHZ_NONE && !name && !identity &&
                                 capabilities == EOAC_NONE && level == RPC_C_AUTHN_LEVEL_CALL;
            const bool actsForUser = impersonation == RPC_C_IMP_LEVEL_IMPERSONATE;
            locator.log.Add(isPlain && actsForUser ? "may act for the user" : "may not");
            return answer;
        });
    BSTR tag = PoisonText();
    CHECK(f.service->GetServiceTag(&tag) == S_OK);
    CHECK(locator.log.All() == CallLog::Calls{"CreateInstance", "ConnectServer \\\\.\\root\\cimv2",
                                              "may act for the user",
                                              "ExecQuery WQL select * from Win32_SystemEnclosure",
                                              "may act for the user", "Next -1 1",
                                              "Get SerialNumber"});
    CHECK(f.trace.Count("CoSetProxyBlanket: 0x80004002", 3) == (answer == S_OK ? 0 : 2));
}

TEST_CASE("Notify: a sink that cannot be told is traced", "[service]")
{
    RecordingSink sink([](DISPPARAMS*) { return E_ACCESSDENIED; });
    FailureFixture f;
    Advise(f.service.Get(), &sink);
    CHECK(f.service->InvokeUpdate(f.text.Get(), f.text.Get(), 1033, nullptr) == S_OK);
    CHECK(f.trace.Count("a sink was not told: 0x80070005", 1) == 1);
    // And one that is not reached.
    OnOtherThread(
        [&] { return f.service->InvokeUpdate(f.text.Get(), f.text.Get(), 1033, nullptr); });
    CHECK(sink.Count() == 1);
    CHECK(f.trace.Count("a sink was not told: 0x800401F0", 1) == 1);
}

TEST_CASE("Apartment: a thread that has not initialised COM is in none", "[service]")
{
    // As it is on Windows: the multithreaded apartment has one context.
    const ImportPatch<"CoGetContextToken", decltype(::CoGetContextToken)> context(
        "ole32.dll", [](ULONG_PTR* token) {
            *token = 1;
            return S_OK;
        });
    ApartmentThread first(COINIT_MULTITHREADED);
    ApartmentThread second(COINIT_MULTITHREADED);
    std::optional<velt::Apartment> home;
    std::optional<velt::Apartment> same;
    first.Do([&] { home = velt::Apartment::Current(); });
    second.Do([&] { same = velt::Apartment::Current(); });
    CHECK(home->IsSame(*same));
    const auto [type, qualifier, none] = OnOtherThread([&] {
        APTTYPE found = APTTYPE_CURRENT;
        APTTYPEQUALIFIER how = APTTYPEQUALIFIER_NONE;
        ::CoGetApartmentType(&found, &how);
        return std::tuple(found, how, velt::Apartment::Current());
    });
    CHECK(type == APTTYPE_MTA); // so it is counted
    CHECK(qualifier == APTTYPEQUALIFIER_IMPLICIT_MTA);
    CHECK_FALSE(home->IsSame(none));
    CHECK_FALSE(none.IsSame(none));
    CHECK_FALSE(home->IsSame(velt::Apartment::Current())); // this thread's is a single-threaded one
}

TEST_CASE("The service: its last reference given up on a thread without COM", "[service]")
{
    RecordingSink sink;
    FailureFixture f;
    Advise(f.service.Get(), &sink);
    OnOtherThread([&] {
        f.service.Reset();
        return true;
    });
    WorkerFixture::Await([&] { return f.module.LockCount() == 0; });
    CHECK(sink.References() == 1);
    CHECK(f.trace.Count("a sink stays in the global interface table") == 0);
}

TEST_CASE("The service: a sink that stays in the global interface table is traced", "[service]")
{
    TraceRecorder trace;
    const TestModule module;
    RecordingSink sink;
    {
        const ComApartment apartment; // its end lets the sink go at last
        ComPtr<IVeltHTTPService> service;
        REQUIRE(velt::CreateComObject<CVeltHTTPService>(service.GetAddressOf()) == S_OK);
        Advise(service.Get(), &sink);
        const Create none("ole32.dll", NoInstance);
        service.Reset();
        WorkerFixture::Await([&] { return module.LockCount() == 1; }); // the one that stays
        CHECK(trace.Count("a sink stays in the global interface table: 0x80040154", 1) == 1);
        CHECK(sink.References() == 2);
    }
    CHECK(sink.References() == 1);
    CHECK(module.LockCount() == 0);
}
