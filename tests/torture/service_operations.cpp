#include "tests/service/service_objects.h"
#include "tests/support/late_bound.h"
#include "tests/support/recording_sink.h"
#include "tests/support/stand_in_locator.h"
#include "tests/support/variants.h"
#include "tests/torture/trial.h"

#include <olectl.h>

#include <comutil.h>

namespace velt::torture
{
namespace
{
using Microsoft::WRL::ComPtr;
using velt::test::EventsOf;
using velt::test::RecordingSink;

constexpr wchar_t kHost[] = L"any-torture";

/// Service members answer S_OK by design where the platform has failed.
ComPtr<IVeltHTTPService> Service(const Trial& trial)
{
    return trial.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
}

template <class Reader>
void Read(Trial& trial, Reader reader, const std::wstring& place, const wchar_t* name,
          const wchar_t* expected)
{
    const auto service = Service(trial);
    const InText url(place.c_str());
    const InText text(name);
    OutText out;
    const HRESULT hr = trial.Act([&] { return (service.Get()->*reader)(url, text, out.Place()); });
    out.Check(trial, hr, expected);
}

/// What was kept is what was there, or the new value; nothing between.
void Write(Trial& trial, bool isSafe)
{
    const auto service = Service(trial);
    const InText url(trial.Place(isSafe ? L"safe-torture" : L"plain-torture").c_str());
    const InText name(L"name");
    const InText before(L"before");
    const InText after(L"after");
    const auto write = isSafe ? &IVeltHTTPService::SafeWriteData : &IVeltHTTPService::WriteData;
    (service.Get()->*write)(url, name, before);
    trial.Act([&] { return (service.Get()->*write)(url, name, after); });
    BSTR text = nullptr;
    const auto read = isSafe ? &IVeltHTTPService::SafeReadData : &IVeltHTTPService::ReadData;
    (service.Get()->*read)(url, name, &text);
    const std::wstring kept = velt::test::Taken(text);
    const std::wstring prefix = isSafe ? L"" : L"name=";
    trial.Check(kept == prefix + L"before" || kept == prefix + L"after",
                "kept is " + std::string(kept.begin(), kept.end()));
    trial.CheckOrdinary(kept == prefix + L"after", "nothing was kept");
}

void WithPoint(Trial& trial, const std::function<void(IConnectionPoint&)>& run)
{
    const auto service = Service(trial);
    const auto point = EventsOf(service.Get());
    run(*point.Get());
}

/// Enumerates by the interface's own methods: Next, Skip, Reset, Clone.
template <class Enumerator, class Item>
void Enumerate(Trial& trial, Enumerator& enumerator, Item empty,
               const std::function<void(Item&)>& release)
{
    Item items[2] = {empty, empty};
    ULONG fetched = 77;
    const HRESULT hr = trial.Act([&] { return enumerator.Next(2, items, &fetched); }, S_FALSE);
    if (SUCCEEDED(hr))
    {
        trial.Check(fetched == 1, "another number");
        release(items[0]);
    }
    ComPtr<Enumerator> copy;
    const HRESULT cloned = trial.Act([&] { return enumerator.Clone(&copy); });
    trial.Check(SUCCEEDED(cloned) == (copy != nullptr), "the out value is not whole");
    trial.Act([&] { return enumerator.Reset(); });
    trial.Act([&] { return enumerator.Skip(2); }, S_FALSE);
}
} // namespace

void AddServiceOperations(std::vector<Operation>& operations)
{
    const auto add = [&](const char* name, std::function<void(Trial&)> run) {
        operations.push_back({"service", name, std::move(run)});
    };
    add("WriteData", [](Trial& trial) { Write(trial, false); });
    add("WriteData of nothing", [](Trial& trial) {
        const auto service = Service(trial);
        trial.Act([&] { return service->WriteData(nullptr, nullptr, nullptr); });
    });
    add("ReadData", [](Trial& trial) {
        const auto service = Service(trial);
        const std::wstring place = trial.Place(L"read-torture");
        service->WriteData(InText(place.c_str()), InText(L"read"), InText(L"value"));
        Read(trial, &IVeltHTTPService::ReadData, place, L"read", L"read=value");
    });
    add("ReadData to nowhere", [](Trial& trial) {
        const auto service = Service(trial);
        const InText url(trial.Place(kHost).c_str());
        trial.Act([&] { return service->ReadData(url, nullptr, nullptr); }, E_POINTER);
    });
    add("SafeWriteData", [](Trial& trial) { Write(trial, true); });
    add("SafeReadData", [](Trial& trial) {
        const auto service = Service(trial);
        const std::wstring place = trial.Place(kHost);
        service->SafeWriteData(InText(place.c_str()), InText(L"safe"), InText(L"value"));
        Read(trial, &IVeltHTTPService::SafeReadData, place, L"safe", L"value");
    });
    add("SafeReadData of a name that is not there", [](Trial& trial) {
        const auto service = Service(trial);
        const InText url(trial.Place(kHost).c_str());
        const InText name(L"none");
        OutText out;
        trial.Act([&] { return service->SafeReadData(url, name, out.Place()); });
        trial.Check(!out.IsTouched(), "the out value is touched");
    });
    add("IsConnected", [](Trial& trial) {
        const auto service = Service(trial);
        VARIANT_BOOL connected = 0x5555;
        const HRESULT hr = trial.Act([&] { return service->get_IsConnected(&connected); });
        trial.Check(connected == (SUCCEEDED(hr) ? VARIANT_FALSE : 0x5555), "another state");
    });
    add("Redirect", [](Trial& trial) {
        const auto service = Service(trial);
        BSTR expected = nullptr;
        service->get_Redirect(&expected);
        OutText out;
        const HRESULT hr = trial.Act([&] { return service->get_Redirect(out.Place()); });
        out.Check(trial, hr, velt::test::Taken(expected).c_str());
    });
    add("domain and GetDomain", [](Trial& trial) {
        const auto service = Service(trial);
        const InText domain(L"velt.example");
        const HRESULT put = trial.Act([&] { return service->put_domain(domain); });
        OutText out;
        const HRESULT hr = trial.Act([&] { return service->GetDomain(out.Place()); });
        out.Check(trial, hr, SUCCEEDED(put) ? L"velt.example" : L"");
    });
    add("GetServiceTag", [](Trial& trial) {
        velt::test::StandInLocator locator;
        locator.serialNumber = [](VARIANT* value) { *value = velt::test::Text(L"tag"); };
        const auto service = Service(trial);
        const LONG before = locator.References(); // the class table's own
        OutText out;
        const HRESULT hr = trial.Act([&] { return service->GetServiceTag(out.Place()); });
        out.Check(trial, hr, L"tag");
        trial.Check(locator.References() == before, "references are left");
    });
    add("GetServiceTag to nowhere", [](Trial& trial) {
        const auto service = Service(trial);
        trial.Act([&] { return service->GetServiceTag(nullptr); }, E_POINTER);
    });
    add("ReadData, late-bound", [](Trial& trial) {
        const auto service = Service(trial);
        const std::wstring place = trial.Place(kHost);
        service->WriteData(InText(place.c_str()), InText(L"late"), InText(L"value"));
        const velt::test::LateBound late(service.Get());
        const _variant_t url(place.c_str());
        const _variant_t name(L"late");
        _variant_t result;
        trial.Act(
            [&] {
                const DISPID id = late.Find(L"ReadData");
                return id == DISPID_UNKNOWN
                           ? E_OUTOFMEMORY
                           : late.Invoke(id, DISPATCH_METHOD, {url, name}, &result);
            },
            S_OK, {E_FAIL});
        trial.CheckOrdinary(result.vt == VT_BSTR, "no result");
    });
    add("FindConnectionPoint", [](Trial& trial) {
        const auto service = Service(trial);
        ComPtr<IConnectionPointContainer> container;
        ComPtr<IConnectionPoint> point;
        HRESULT hr = trial.Act([&] { return service.As(&container); });
        hr = trial.Act(
            [&] { return container->FindConnectionPoint(DIID_IVeltHTTPServiceEvents, &point); });
        trial.Check(SUCCEEDED(hr) == (point != nullptr), "the out value is not whole");
    });
    add("FindConnectionPoint of another interface", [](Trial& trial) {
        const auto service = Service(trial);
        ComPtr<IConnectionPointContainer> container;
        service.As(&container);
        ComPtr<IConnectionPoint> point;
        trial.Act([&] { return container->FindConnectionPoint(IID_IDispatch, &point); },
                  CONNECT_E_NOCONNECTION);
        trial.Check(point == nullptr, "the out value is not whole");
    });
    add("EnumConnectionPoints and its enumerator", [](Trial& trial) {
        const auto service = Service(trial);
        ComPtr<IConnectionPointContainer> container;
        service.As(&container);
        ComPtr<IEnumConnectionPoints> enumerator;
        const HRESULT hr = trial.Act([&] { return container->EnumConnectionPoints(&enumerator); });
        trial.Check(SUCCEEDED(hr) == (enumerator != nullptr), "the out value is not whole");
        if (enumerator)
        {
            Enumerate<IEnumConnectionPoints, IConnectionPoint*>(
                trial, *enumerator.Get(), nullptr,
                [](IConnectionPoint*& point) { point->Release(); });
        }
    });
    add("GetConnectionInterface, GetConnectionPointContainer", [](Trial& trial) {
        WithPoint(trial, [&](IConnectionPoint& point) {
            IID iid{};
            trial.Act([&] { return point.GetConnectionInterface(&iid); });
            ComPtr<IConnectionPointContainer> container;
            const HRESULT hr =
                trial.Act([&] { return point.GetConnectionPointContainer(&container); });
            trial.Check(SUCCEEDED(hr) == (container != nullptr), "the out value is not whole");
        });
    });
    for (const bool isAgile : {false, true})
    {
        add(isAgile ? "Advise and Unadvise, agile" : "Advise and Unadvise",
            [isAgile](Trial& trial) {
                RecordingSink sink;
                if (isAgile)
                {
                    sink.MakeAgile();
                }
                WithPoint(trial, [&](IConnectionPoint& point) {
                    DWORD cookie = 77;
                    HRESULT hr = trial.Act([&] { return point.Advise(&sink, &cookie); }, S_OK,
                                           {CONNECT_E_ADVISELIMIT});
                    trial.Check(SUCCEEDED(hr) == (cookie != 0 && cookie != 77),
                                "the out value is not whole");
                    if (SUCCEEDED(hr))
                    {
                        hr = trial.Act([&] { return point.Unadvise(cookie); });
                        if (FAILED(hr))
                        {
                            point.Unadvise(cookie);
                        }
                    }
                });
                trial.Check(sink.References() == 1, "references are left");
            });
    }
    add("Advise, and the service goes", [](Trial& trial) {
        RecordingSink sink;
        auto service = Service(trial);
        DWORD cookie = 0;
        trial.Act([&] { return EventsOf(service.Get())->Advise(&sink, &cookie); }, S_OK,
                  {CONNECT_E_ADVISELIMIT});
        trial.Do([&] { service.Reset(); });
        trial.Check(sink.References() == 1, "references are left");
    });
    add("Unadvise of an unknown cookie", [](Trial& trial) {
        WithPoint(trial, [&](IConnectionPoint& point) {
            trial.Act([&] { return point.Unadvise(4711); }, CONNECT_E_NOCONNECTION);
        });
    });
    add("EnumConnections and its enumerator", [](Trial& trial) {
        RecordingSink sink;
        WithPoint(trial, [&](IConnectionPoint& point) {
            DWORD cookie = 0;
            point.Advise(&sink, &cookie);
            ComPtr<IEnumConnections> enumerator;
            const HRESULT hr = trial.Act([&] { return point.EnumConnections(&enumerator); });
            trial.Check(SUCCEEDED(hr) == (enumerator != nullptr), "the out value is not whole");
            if (enumerator)
            {
                Enumerate<IEnumConnections, CONNECTDATA>(
                    trial, *enumerator.Get(), CONNECTDATA{},
                    [](CONNECTDATA& data) { data.pUnk->Release(); });
            }
            enumerator.Reset();
            point.Unadvise(cookie);
        });
        trial.Check(sink.References() == 1, "references are left");
    });
    add("GetClassInfo and GetGUID", [](Trial& trial) {
        const auto service = Service(trial);
        ComPtr<IProvideClassInfo2> provider;
        service.As(&provider);
        ComPtr<ITypeInfo> info;
        const HRESULT hr = trial.Act([&] { return provider->GetClassInfo(&info); });
        trial.Check(SUCCEEDED(hr) == (info != nullptr), "the out value is not whole");
        GUID guid{};
        trial.Act([&] { return provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &guid); });
    });
}
} // namespace velt::torture
