// The service object through the built library: interfaces, members, values in cookies.

#include "foundation/endpoints.h"
#include "tests/service/service_objects.h"
#include "tests/support/com_apartment.h"
#include "tests/support/late_bound.h"
#include "tests/support/outer_object.h"
#include "tests/support/variants.h"

#include <ocidl.h>
#include <wininet.h>

#include <catch.hpp>

#include <string>
#include <tuple>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;
using velt::MakeBstr;

namespace
{
struct ServiceFixture
{
    const ComApartment apartment;
    const ComponentLibrary library;
    ComPtr<IVeltHTTPService> service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);

    HRESULT Write(const std::wstring& url, const wchar_t* name, const wchar_t* value) const
    {
        return service->WriteData(MakeBstr(url).Get(), MakeBstr(name).Get(), MakeBstr(value).Get());
    }

    /// The cookies of a URL, "<untouched>" when the out value was not written.
    std::wstring Read(const std::wstring& url, const wchar_t* name = L"x") const
    {
        BSTR value = PoisonText();
        if (service->ReadData(MakeBstr(url).Get(), MakeBstr(name).Get(), &value) != S_OK)
        {
            return L"<failed>";
        }
        return value == PoisonText() ? L"<untouched>" : Taken(value);
    }

    HRESULT SafeWrite(const std::wstring& url, const std::wstring& name,
                      const std::wstring& value) const
    {
        return service->SafeWriteData(MakeBstr(url).Get(), MakeBstr(name).Get(),
                                      MakeBstr(value).Get());
    }

    std::wstring SafeRead(const std::wstring& url, const std::wstring& name) const
    {
        BSTR value = PoisonText();
        if (service->SafeReadData(MakeBstr(url).Get(), MakeBstr(name).Get(), &value) != S_OK)
        {
            return L"<failed>";
        }
        return value == PoisonText() ? L"<untouched>" : Taken(value);
    }
};

constexpr wchar_t kUntouched[] = L"<untouched>";
const std::wstring kRedirectAddress =
    std::wstring(L"http://") + velt::kRedirectHost + L"/redirect/redirect.aspx?";

/// A host that no other test uses.
std::wstring OwnUrl()
{
    static int number = 0;
    return L"http://host" + std::to_wstring(++number) + L".velt.example/folder/page";
}

/// Our cookie of a URL as it stands in the store.
std::wstring OurCookie(const std::wstring& cookies)
{
    const std::size_t at = cookies.find(L"velt=");
    return at == std::wstring::npos ? L"" : cookies.substr(at, cookies.find(L';', at) - at);
}
} // namespace

TEST_CASE("The service: it answers to its interfaces", "[service]")
{
    const ServiceFixture f;
    for (const IID* iid :
         {&IID_IUnknown, &IID_IDispatch, &IID_IVeltHTTPService, &IID_IConnectionPointContainer,
          &IID_IProvideClassInfo, &IID_IProvideClassInfo2})
    {
        ComPtr<IUnknown> found;
        CHECK(f.service->QueryInterface(*iid, reinterpret_cast<void**>(found.GetAddressOf())) ==
              S_OK);
    }
    // Not agile: what another apartment gets is marshalled.
    void* none = PoisonText();
    CHECK(f.service->QueryInterface(IID_IMarshal, &none) == E_NOINTERFACE);
    CHECK(none == nullptr);
    CHECK(f.service->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
}

TEST_CASE("The service: it tells its class and the interface of its events", "[service]")
{
    const ServiceFixture f;
    ComPtr<IProvideClassInfo2> info;
    REQUIRE(f.service.As(&info) == S_OK);
    ComPtr<ITypeInfo> type;
    REQUIRE(info->GetClassInfo(&type) == S_OK);
    TYPEATTR* attributes = nullptr;
    REQUIRE(type->GetTypeAttr(&attributes) == S_OK);
    CHECK(attributes->typekind == TKIND_COCLASS);
    CHECK(attributes->guid == CLSID_CVeltHTTPService);
    type->ReleaseTypeAttr(attributes);
    GUID guid = CLSID_CVeltHTTPService;
    CHECK(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &guid) == S_OK);
    CHECK(guid == DIID_IVeltHTTPServiceEvents);
    CHECK(info->GetGUID(0, &guid) == E_INVALIDARG);
    CHECK(guid == GUID_NULL);
    CHECK(info->GetGUID(2, &guid) == E_INVALIDARG);
    CHECK(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, nullptr) == E_POINTER);
    CHECK(info->GetClassInfo(nullptr) == E_POINTER);
}

TEST_CASE("The service: it can be aggregated", "[service]")
{
    const ComApartment apartment;
    const ComponentLibrary library;
    bool alive = false;
    {
        auto outer = OuterObject::Make(&alive);
        REQUIRE(outer->Aggregate(*library.Factory(CLSID_CVeltHTTPService).Get()) == S_OK);
        ComPtr<IVeltHTTPService> service;
        ComPtr<IUnknown> identity;
        ComPtr<IServiceProvider> back;
        REQUIRE(outer.As(&service) == S_OK);
        REQUIRE(service.As(&identity) == S_OK);
        CHECK(identity.Get() == static_cast<IUnknown*>(outer.Get()));
        CHECK(service.As(&back) == S_OK);
        ComPtr<IConnectionPoint> point = EventsOf(service.Get());
        back.Reset();
        identity.Reset();
        service.Reset();
        outer.Reset();
        CHECK(alive); // the point keeps the whole
        ComPtr<IConnectionPointContainer> container;
        CHECK(point->GetConnectionPointContainer(&container) == S_OK);
        ComPtr<IVeltHTTPService> again;
        CHECK(container.As(&again) == S_OK);
        CHECK(Invoke(again.Get()) == S_OK);
    }
    CHECK_FALSE(alive);
    CHECK(library.CanUnloadNow() == S_OK);

    void* none = PoisonText();
    auto outer = OuterObject::Make();
    CHECK(library.Factory(CLSID_CVeltHTTPService)
              ->CreateInstance(outer.Get(), IID_IVeltHTTPService, &none) == CLASS_E_NOAGGREGATION);
    CHECK(none == nullptr);
}

TEST_CASE("The service: a null out pointer is told by every member", "[service]")
{
    const ServiceFixture f;
    const velt::UniqueBstr text = MakeBstr(L"http://a.example/");
    CHECK(f.service->ReadData(text.Get(), text.Get(), nullptr) == E_POINTER);
    CHECK(f.service->SafeReadData(text.Get(), text.Get(), nullptr) == E_POINTER);
    CHECK(f.service->get_IsConnected(nullptr) == E_POINTER);
    CHECK(f.service->get_Redirect(nullptr) == E_POINTER);
    CHECK(f.service->GetServiceTag(nullptr) == E_POINTER);
    CHECK(f.service->IsUpdateOrMessageAvailable(text.Get(), text.Get(), 1033, VARIANT_FALSE,
                                                nullptr) == E_POINTER);
    CHECK(f.service->GetDomain(nullptr) == E_POINTER);
}

TEST_CASE("The service: null texts are empty ones", "[service]")
{
    const ServiceFixture f;
    BSTR value = PoisonText();
    CHECK(f.service->WriteData(nullptr, nullptr, nullptr) == S_OK);
    CHECK(f.service->ReadData(nullptr, nullptr, &value) == S_OK);
    CHECK(value == PoisonText());
    CHECK(f.service->SafeWriteData(nullptr, nullptr, nullptr) == S_OK);
    CHECK(f.service->SafeReadData(nullptr, nullptr, &value) == S_OK);
    CHECK(value == PoisonText());
    CHECK(f.service->StartUpdateService(nullptr, nullptr, 0, nullptr) == S_OK);
    VARIANT_BOOL available = VARIANT_TRUE;
    CHECK(f.service->IsUpdateOrMessageAvailable(nullptr, nullptr, 0, VARIANT_FALSE, &available) ==
          S_OK);
    CHECK(available == VARIANT_FALSE); // there is no agent
    CHECK(f.service->put_domain(nullptr) == S_OK);
    CHECK(f.service->GetDomain(&value) == S_OK);
    CHECK(Taken(value).empty());
}

TEST_CASE("WriteData: sets a cookie of the URL for the logon session", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    CHECK(f.Write(url, L"name", L"value") == S_OK);
    wchar_t text[64] = L"";
    DWORD size = 64;
    REQUIRE(::InternetGetCookieW(url.c_str(), L"name", text, &size));
    CHECK((std::wstring(text) == L"name=value"));
}

TEST_CASE("WriteData: an invalid URL is no failure", "[service]")
{
    const ServiceFixture f;
    const wchar_t* const url = GENERATE(L"", L"no url", L"http://", L"ftp:", L"\x263A", L"://");
    CHECK(f.Write(url, L"name", L"value") == S_OK);
    CHECK((f.Read(url) == kUntouched));
    CHECK(f.SafeWrite(url, L"name", L"value") == S_OK);
    CHECK((f.SafeRead(url, L"name") == kUntouched));
}

TEST_CASE("ReadData: a URL without cookies leaves the out value as it was", "[service]")
{
    const ServiceFixture f;
    CHECK((f.Read(OwnUrl()) == kUntouched));
}

TEST_CASE("ReadData: all cookies of the URL, whatever the name is", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    f.Write(url, L"first", L"1");
    f.Write(url, L"second", L"2");
    const std::wstring all = f.Read(url, L"first");
    CHECK((all == L"first=1; second=2" || all == L"second=2; first=1"));
    CHECK((f.Read(url, L"second") == all));
    CHECK((f.Read(url, L"neither") == all));
    CHECK((f.Read(url, L"") == all));
    BSTR value = nullptr;
    CHECK(f.service->ReadData(MakeBstr(url).Get(), nullptr, &value) == S_OK);
    CHECK((Taken(value) == all));
}

TEST_CASE("ReadData: long cookies and other scripts come back whole", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    const std::wstring value(3000, L'v');
    f.Write(url, L"long", value.c_str());
    f.Write(url, L"script", L"\u00E4\u00F6");
    const std::wstring all = f.Read(url);
    CHECK(all.find(L"long=" + value) != std::wstring::npos);
    CHECK(all.find(L"script=\u00E4\u00F6") != std::wstring::npos);
}

TEST_CASE("SafeWriteData: any text survives the round trip", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    const std::vector<std::tuple<std::wstring, std::wstring>> pairs = {
        {L"name", L"value"},
        {L"empty", L""},
        {L"", L"an empty name is a name"},
        {L"a=b;c", L"x=y; expires=never"},
        {L"\u4E2D\u6587", L"\u0416\u00E4\U0001F600"},
        {L"surrogate", std::wstring(1, static_cast<wchar_t>(0xD800))},
        {std::wstring(L"n\0n", 3), std::wstring(L"v\0v", 3)},
        {L"lines", L"1\r\n2\t3"},
    };
    for (const auto& [name, value] : pairs)
    {
        CHECK(f.SafeWrite(url, name, value) == S_OK);
    }
    for (const auto& [name, value] : pairs)
    {
        CHECK((f.SafeRead(url, name) == value));
    }
    CHECK((f.SafeRead(url, L"Name") == kUntouched));
    CHECK((f.SafeRead(OwnUrl(), L"name") == kUntouched));
    CHECK(f.SafeWrite(url, L"name", L"another value") == S_OK);
    CHECK((f.SafeRead(url, L"name") == L"another value"));
    CHECK((f.SafeRead(url, L"empty").empty()));
    // Another object sees the same.
    const ServiceFixture other;
    CHECK((other.SafeRead(url, L"a=b;c") == L"x=y; expires=never"));
}

TEST_CASE("SafeWriteData: one cookie that does not show what is in it", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    f.Write(url, L"other", L"1");
    f.SafeWrite(url, L"secretname", L"secretvalue");
    f.SafeWrite(url, L"second", L"2");
    const std::wstring all = f.Read(url);
    CHECK(all.find(L"secret") == std::wstring::npos);
    CHECK(all.find(L"other=1") != std::wstring::npos);
    REQUIRE_FALSE(OurCookie(all).empty());
    CHECK(all.find(L"velt=", all.find(L"velt=") + 1) == std::wstring::npos);
}

TEST_CASE("SafeWriteData: hosts that the code page lacks share nothing", "[service]")
{
    const ServiceFixture f;
    const std::wstring first = L"http://\u4E2D\u6587.velt.example/";
    const std::wstring second = L"http://\u65E5\u672C.velt.example/";
    CHECK(f.SafeWrite(first, L"n", L"v") == S_OK);
    const std::wstring found = f.SafeRead(first, L"n"); // there where the code page has it
    CHECK((found == kUntouched || found == L"v"));
    CHECK((f.SafeRead(second, L"n") == kUntouched));
    CHECK((f.SafeRead(L"http://?\u003F.velt.example/", L"n") == kUntouched));
}

TEST_CASE("SafeReadData: cookies of others under our name hold nothing", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    f.SafeWrite(url, L"n", L"v");
    const std::wstring ours = OurCookie(f.Read(url)).substr(5);
    const std::wstring foreign = GENERATE_COPY(
        as<std::wstring>(), L"", L"deleted", L"1", L"AAAAAA", L"%00%FF", ours.substr(1),
        ours.substr(0, ours.size() - 1), ours + L"A", L"B" + ours, std::wstring(20'000, L'A'),
        L"\u00FF\u00FE", L"a=b=c", std::wstring(ours.rbegin(), ours.rend()));
    f.Write(url, L"velt", foreign.c_str());
    CHECK((f.SafeRead(url, L"n") == kUntouched));
    CHECK((f.SafeRead(url, L"") == kUntouched));
    CHECK(f.SafeWrite(url, L"n", L"again") == S_OK); // takes its place
    CHECK((f.SafeRead(url, L"n") == L"again"));
}

TEST_CASE("SafeWriteData: a pair that no cookie can hold is refused, the old ones stay",
          "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    f.SafeWrite(url, L"kept", L"value");
    const std::wstring before = f.Read(url);
    for (const std::size_t size : {std::size_t{3100}, std::size_t{5000}, std::size_t{2'000'000}})
    {
        CHECK(f.SafeWrite(url, L"big", std::wstring(size, L'x')) == S_OK);
        CHECK(f.SafeWrite(url, std::wstring(size, L'x'), L"big") == S_OK);
        CHECK(f.SafeWrite(url, L"kept", std::wstring(size, L'x')) == S_OK);
        CHECK((f.Read(url) == before));
    }
    CHECK((f.SafeRead(url, L"kept") == L"value"));
    CHECK((f.SafeRead(url, L"big") == kUntouched));
    // The largest that fits comes back whole; more than one of them does not fit.
    std::wstring largest(2900, L'y');
    while (f.SafeWrite(url, L"big", largest) == S_OK && f.SafeRead(url, L"big") == largest)
    {
        largest += L'y';
        REQUIRE(largest.size() < 4096);
    }
    largest.pop_back();
    CHECK((f.SafeRead(url, L"big") == largest));
    CHECK(f.SafeWrite(url, L"one more", largest) == S_OK);
    CHECK((f.SafeRead(url, L"one more") == kUntouched));
    CHECK((f.SafeRead(url, L"kept") == L"value"));
    CHECK((f.SafeRead(url, L"big") == largest));
}

TEST_CASE("domain: is kept, and is the cookie's", "[service]")
{
    const ServiceFixture f;
    BSTR domain = PoisonText();
    CHECK(f.service->GetDomain(&domain) == S_OK);
    CHECK(Taken(domain).empty());
    const std::wstring host = L"shop.domaintest.velt.example";
    const std::wstring url = L"http://" + host + L"/";
    const std::wstring sibling = L"http://www.domaintest.velt.example/";

    f.SafeWrite(url, L"n", L"for the host");
    CHECK((f.SafeRead(sibling, L"n") == kUntouched));
    CHECK(f.service->put_domain(MakeBstr(L".domaintest.velt.example").Get()) == S_OK);
    CHECK(f.service->GetDomain(&domain) == S_OK);
    CHECK((Taken(domain) == L".domaintest.velt.example"));
    f.SafeWrite(url, L"n", L"for the domain");
    // The newer cookie counts, though the host's own one is there too.
    CHECK((f.SafeRead(url, L"n") == L"for the domain"));
    CHECK((f.SafeRead(sibling, L"n") == L"for the domain"));
    f.service->put_domain(MakeBstr(L"").Get());
    f.SafeWrite(url, L"n", L"for the host again");
    CHECK((f.SafeRead(url, L"n") == L"for the host again"));
    CHECK((f.SafeRead(sibling, L"n") == L"for the domain"));
}

TEST_CASE("domain: one that would end its attribute is kept but never written", "[service]")
{
    const ServiceFixture f;
    const std::wstring url = OwnUrl();
    f.SafeWrite(url, L"n", L"v");
    const std::wstring domain = L"a.example; path=/; x=y";
    CHECK(f.service->put_domain(MakeBstr(domain).Get()) == S_OK);
    BSTR found = nullptr;
    CHECK(f.service->GetDomain(&found) == S_OK);
    CHECK((Taken(found) == domain));
    CHECK(f.SafeWrite(url, L"n", L"other") == S_OK);
    CHECK((f.SafeRead(url, L"n") == L"v"));
}

TEST_CASE("Redirect: the base address of the redirect service", "[service]")
{
    const ServiceFixture f;
    BSTR address = PoisonText();
    CHECK(f.service->get_Redirect(&address) == S_OK);
    CHECK((Taken(address) == kRedirectAddress));
}

TEST_CASE("IsConnected: nothing is known before the first update work", "[service]")
{
    const ServiceFixture f;
    VARIANT_BOOL connected = VARIANT_TRUE;
    CHECK(f.service->get_IsConnected(&connected) == S_OK);
    CHECK(connected == VARIANT_FALSE);
    // Work on the calling thread is no step of the queue.
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(f.service->get_IsConnected(&connected) == S_OK);
    CHECK(connected == VARIANT_FALSE);
}

TEST_CASE("IsUpdateOrMessageAvailable: no agent, nothing available", "[service]")
{
    const ServiceFixture f;
    const VARIANT_BOOL connect = GENERATE(VARIANT_TRUE, VARIANT_FALSE);
    VARIANT_BOOL available = 0x5555;
    CHECK(f.service->IsUpdateOrMessageAvailable(MakeBstr(kGuid).Get(), MakeBstr(L"1").Get(), 1033,
                                                connect, &available) == S_OK);
    CHECK(available == VARIANT_FALSE);
}

TEST_CASE("The service: every member late-bound", "[service]")
{
    const ServiceFixture f;
    const LateBound late(f.service.Get());
    std::vector<VARIANT> texts;
    const auto text = [&](const std::wstring& value) {
        texts.push_back(Text(value.c_str()));
        return texts.back();
    };
    const std::wstring url = OwnUrl();
    VARIANT result = OfType(VT_EMPTY);
    CHECK(late.Call(L"WriteData", {text(url), text(L"a"), text(L"b")}) == S_OK);
    CHECK(late.Call(L"readdata", {text(url), text(L"")}, &result) == S_OK);
    CHECK((TextOf(result) == L"a=b"));
    ::VariantClear(&result);
    CHECK(late.Call(L"SafeWriteData", {text(url), text(L"n"), text(L"v")}) == S_OK);
    CHECK(late.Call(L"SafeReadData", {text(url), text(L"n")}, &result) == S_OK);
    CHECK((TextOf(result) == L"v"));
    ::VariantClear(&result);
    CHECK(late.Get(L"IsConnected", {}, &result) == S_OK);
    CHECK(result.vt == VT_BOOL);
    CHECK(late.Call(L"IsConnected", {}, &result) == DISP_E_MEMBERNOTFOUND); // it is no method
    CHECK(late.Invoke(late.Find(L"IsConnected"), DISPATCH_METHOD | DISPATCH_PROPERTYGET, {},
                      &result) == S_OK);
    CHECK(late.Get(L"Redirect", {}, &result) == S_OK);
    CHECK((TextOf(result) == kRedirectAddress));
    ::VariantClear(&result);
    VARIANT domain = text(L"d.example");
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS parameters{&domain, &put, 1, 1};
    CHECK(f.service->Invoke(8, IID_NULL, 0, DISPATCH_PROPERTYPUT, &parameters, nullptr, nullptr,
                            nullptr) == S_OK);
    CHECK(late.Call(L"GetDomain", {}, &result) == S_OK);
    CHECK((TextOf(result) == L"d.example"));
    ::VariantClear(&result);
    CHECK(late.Call(L"InvokeUpdate", {text(kGuid), text(L"1"), Long(1033), text(L"d")}) == S_OK);
    CHECK(late.Call(L"IsUpdateOrMessageAvailable",
                    {text(kGuid), text(L"1"), Long(1033), OfType(VT_BOOL)}, &result) == S_OK);
    CHECK(result.vt == VT_BOOL);
    CHECK(late.Call(L"GetServiceTag", {}, &result) == S_OK);
    ::VariantClear(&result);
    CHECK(late.Call(L"StartUpdateService", {text(kGuid), text(L"1"), Long(1033), text(L"d")}) ==
          S_OK);
    CHECK(late.Call(L"StartService") == S_OK);
    for (DISPID id = 1;
         const wchar_t* name :
         {L"StartService", L"WriteData", L"ReadData", L"SafeWriteData", L"SafeReadData",
          L"IsConnected", L"Redirect", L"domain", L"GetServiceTag", L"InvokeUpdate",
          L"IsUpdateOrMessageAvailable", L"GetDomain", L"StartUpdateService"})
    {
        CHECK(late.Find(name) == id++);
    }
    for (VARIANT& value : texts)
    {
        ::VariantClear(&value);
    }
}

TEST_CASE("The service: what it made is gone with it", "[service]")
{
    ServiceFixture f;
    CHECK(f.service->StartService() == S_OK);
    CHECK(f.library.CanUnloadNow() == S_FALSE);
    f.service.Reset();
    CHECK(f.library.CanUnloadNow() == S_OK); // the idle worker has ended as well
}
