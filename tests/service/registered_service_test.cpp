// The service as hosts and scripts find it by its registration.

#include "foundation/endpoints.h"
#include "foundation/wide_text.h"
#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/built_file.h"
#include "tests/support/child_process.h"
#include "tests/support/com_apartment.h"
#include "tests/support/late_bound.h"
#include "tests/support/recording_sink.h"

#include <catch.hpp>

#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
constexpr wchar_t kProgId[] = L"VeltHTTPClient.VeltHTTPService12OEM";
constexpr wchar_t kVersionedProgId[] = L"VeltHTTPClient.VeltHTTPService12OEM.2";

/// Registers the library once for the program, which has a prefix of its own, and keeps the
/// multithreaded apartment for as long: where it ends, Wine may wait for ever for a call that has
/// been answered.
void RequireRegistration()
{
    static const HRESULT registered = ComponentLibrary().RegisterServer();
    REQUIRE(registered == S_OK);
    [[maybe_unused]] static const auto* const kept = new ApartmentThread(COINIT_MULTITHREADED);
}

template <class Interface>
ComPtr<Interface> CreateByProgId(const wchar_t* progId)
{
    CLSID clsid = CLSID_NULL;
    ComPtr<Interface> object;
    if (FAILED(::CLSIDFromProgID(progId, &clsid)) ||
        FAILED(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&object))))
    {
        throw std::runtime_error("the registered service cannot be created");
    }
    return object;
}

/// Whether calls go through the platform: its proxies answer for more interfaces at once.
bool IsProxy(const ComPtr<IVeltHTTPService>& service)
{
    ComPtr<IMultiQI> manager;
    return service.As(&manager) == S_OK;
}
} // namespace

TEST_CASE("The registered service: both ProgIDs and the CLSID make it", "[service]")
{
    RequireRegistration();
    const ComApartment apartment;
    for (const wchar_t* progId : {kProgId, kVersionedProgId})
    {
        const auto service = CreateByProgId<IVeltHTTPService>(progId);
        VARIANT_BOOL connected = VARIANT_TRUE;
        CHECK(service->get_IsConnected(&connected) == S_OK);
        CHECK(connected == VARIANT_FALSE);
    }
    ComPtr<IDispatch> late;
    CHECK(::CoCreateInstance(CLSID_CVeltHTTPService, nullptr, CLSCTX_INPROC_SERVER,
                             IID_PPV_ARGS(&late)) == S_OK);
}

TEST_CASE("The registered service: a single-threaded apartment gets a proxy", "[service]")
{
    RequireRegistration();
    {
        const ComApartment apartment;
        const auto service = CreateByProgId<IVeltHTTPService>(kProgId);
        CHECK(IsProxy(service));

        // Early and late bound through the automation marshaller.
        const velt::UniqueBstr url = velt::MakeBstr(L"http://proxy.velt.example/");
        const velt::UniqueBstr name = velt::MakeBstr(L"n");
        const velt::UniqueBstr value = velt::MakeBstr(std::wstring(L"v\0v", 3));
        BSTR read = nullptr;
        CHECK(service->SafeWriteData(url.Get(), name.Get(), value.Get()) == S_OK);
        CHECK(service->SafeReadData(url.Get(), name.Get(), &read) == S_OK);
        CHECK((Taken(read) == std::wstring(L"v\0v", 3)));
        VARIANT result;
        ::VariantInit(&result);
        CHECK(LateBound(service.Get()).Get(L"Redirect", {}, &result) == S_OK);
        CHECK(result.vt == VT_BSTR);
        ::VariantClear(&result);
    }
    {
        // The multithreaded apartment has the object itself.
        ApartmentThread other(COINIT_MULTITHREADED);
        bool isProxy = true;
        other.Do([&] { isProxy = IsProxy(CreateByProgId<IVeltHTTPService>(kProgId)); });
        CHECK_FALSE(isProxy);
    }
}

TEST_CASE("The registered service: a sink of a single-threaded apartment hears it", "[service]")
{
    RequireRegistration();
    const ComApartment apartment;
    RecordingSink sink;
    {
        const auto service = CreateByProgId<IVeltHTTPService>(kProgId);
        const DWORD cookie = Advise(service.Get(), &sink);
        CHECK(Invoke(service.Get()) == S_OK);
        REQUIRE(sink.Count() == 1);
        CHECK(sink.Events()[0].thread == ::GetCurrentThreadId());
        CHECK((sink.Events()[0].text == kGuid));
        CHECK(EventsOf(service.Get())->Unadvise(cookie) == S_OK);
        CHECK(Invoke(service.Get()) == S_OK);
        CHECK(sink.Count() == 1);
    }
}

TEST_CASE("The registered service: a sink may end it while it is told", "[service]")
{
    RequireRegistration();
    const ComApartment apartment;
    ComPtr<IVeltHTTPService> service = CreateByProgId<IVeltHTTPService>(kProgId);
    RecordingSink sink([&](DISPPARAMS*) {
        service.Reset();
        return S_OK;
    });
    Advise(service.Get(), &sink);
    IVeltHTTPService* const called = service.Get();
    called->AddRef(); // a proxy must not go while it is being called
    CHECK(Invoke(called) == S_OK);
    CHECK(called->Release() == 0);
    CHECK(sink.Count() == 1);
}

TEST_CASE("The registered service: scripts use all of its members", "[service]")
{
    RequireRegistration();
    const auto [script, yes, no, tags] =
        GENERATE(table<std::wstring, std::string, std::string, std::string>({
            {L"members.js", "true", "false", "string"},
            {L"members.vbs", "True", "False", "String"},
        }));
    const ProcessOutput output = RunForOutput(
        L"cscript.exe //nologo \"" + BuiltFile(L"tests\\service\\scripts\\" + script) + L"\"");
    INFO(output.text);
    CHECK(output.exitCode == 0);
    CHECK(output.text == "none: []\nread: name=value\nsafe: " + yes +
                             "\nempty: []\nmissing: []\nhidden: " + yes +
                             "\ndomain: .velt.example\n"
                             "redirect: http://" +
                             velt::Utf8FromWide(velt::kRedirectHost) +
                             "/redirect/redirect.aspx?LinkId=5\n"
                             "connected: " +
                             no + "\ntag: " + tags + "\navailable: " + no + "\ndone\n");
}
