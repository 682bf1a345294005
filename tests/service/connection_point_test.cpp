// The connection points of the service, through the built library.

#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/outer_object.h"
#include "tests/support/recording_sink.h"
#include "tests/support/stand_in_object.h"

#include <olectl.h>

#include <catch.hpp>

#include <array>
#include <deque>
#include <set>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
struct ConnectionFixture
{
    const ComApartment apartment;
    const ComponentLibrary library;
    ComPtr<IVeltHTTPService> service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);

    ComPtr<IConnectionPointContainer> Container() const
    {
        ComPtr<IConnectionPointContainer> container;
        REQUIRE(service.As(&container) == S_OK);
        return container;
    }
};

template <class T>
T* Poison()
{
    return reinterpret_cast<T*>(static_cast<UINT_PTR>(0xCDCDCDCD)); // NOLINT
}

constexpr DWORD kPoison = 0xCDCDCDCD;

/// Says that it has the interface of the events, and hands out none.
class EmptySink final : public IUnknown
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        *object = iid == IID_IUnknown ? this : nullptr;
        return S_OK;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return 2; // in the test's scope
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return 1;
    }
};

std::vector<DWORD> CookiesOf(IConnectionPoint* point)
{
    ComPtr<IEnumConnections> connections;
    REQUIRE(point->EnumConnections(&connections) == S_OK);
    std::vector<DWORD> cookies;
    CONNECTDATA data{};
    while (connections->Next(1, &data, nullptr) == S_OK)
    {
        cookies.push_back(data.dwCookie);
        data.pUnk->Release();
    }
    return cookies;
}
} // namespace

TEST_CASE("Connection points: the container has one, for the events", "[service]")
{
    const ConnectionFixture f;
    const auto container = f.Container();
    ComPtr<IConnectionPoint> point;
    REQUIRE(container->FindConnectionPoint(DIID_IVeltHTTPServiceEvents, &point) == S_OK);
    IID iid = IID_NULL;
    CHECK(point->GetConnectionInterface(&iid) == S_OK);
    CHECK(iid == DIID_IVeltHTTPServiceEvents);
    ComPtr<IConnectionPointContainer> back;
    CHECK(point->GetConnectionPointContainer(&back) == S_OK);
    CHECK(back.Get() == container.Get());

    IConnectionPoint* none = Poison<IConnectionPoint>();
    CHECK(container->FindConnectionPoint(IID_IDispatch, &none) == CONNECT_E_NOCONNECTION);
    CHECK(none == nullptr);
}

TEST_CASE("Connection points: a null out pointer is told", "[service]")
{
    const ConnectionFixture f;
    const auto container = f.Container();
    const auto point = EventsOf(f.service.Get());
    CHECK(container->EnumConnectionPoints(nullptr) == E_POINTER);
    CHECK(container->FindConnectionPoint(DIID_IVeltHTTPServiceEvents, nullptr) == E_POINTER);
    CHECK(container->FindConnectionPoint(IID_NULL, nullptr) == E_POINTER);
    CHECK(point->GetConnectionInterface(nullptr) == E_POINTER);
    CHECK(point->GetConnectionPointContainer(nullptr) == E_POINTER);
    CHECK(point->EnumConnections(nullptr) == E_POINTER);
    CHECK(point->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
    RecordingSink sink;
    DWORD cookie = kPoison;
    CHECK(point->Advise(nullptr, &cookie) == E_POINTER);
    CHECK(cookie == 0);
    CHECK(point->Advise(&sink, nullptr) == E_POINTER);
    CHECK(sink.References() == 1);
}

TEST_CASE("Connection points: a point is an identity of its own and keeps the object", "[service]")
{
    const ComApartment apartment;
    const ComponentLibrary library;
    ComPtr<IVeltHTTPService> service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    ComPtr<IConnectionPoint> point = EventsOf(service.Get());
    ComPtr<IUnknown> pointUnknown;
    ComPtr<IUnknown> objectUnknown;
    REQUIRE(point.As(&pointUnknown) == S_OK);
    REQUIRE(service.As(&objectUnknown) == S_OK);
    CHECK(pointUnknown.Get() != objectUnknown.Get());
    void* none = Poison<void>();
    CHECK(point->QueryInterface(IID_IDispatch, &none) == E_NOINTERFACE);
    CHECK(none == nullptr);
    pointUnknown.Reset();
    objectUnknown.Reset();
    service.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    ComPtr<IConnectionPointContainer> container;
    CHECK(point->GetConnectionPointContainer(&container) == S_OK);
    container.Reset();
    point.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("Connection points: they are enumerated", "[service]")
{
    const ConnectionFixture f;
    ComPtr<IEnumConnectionPoints> points;
    REQUIRE(f.Container()->EnumConnectionPoints(&points) == S_OK);
    std::array<IConnectionPoint*, 2> found{Poison<IConnectionPoint>(), nullptr};
    ULONG fetched = kPoison;
    CHECK(points->Next(2, found.data(), &fetched) == S_FALSE);
    REQUIRE(fetched == 1);
    CHECK(found[0] == EventsOf(f.service.Get()).Get());
    found[0]->Release();
    CHECK(points->Next(1, found.data(), &fetched) == S_FALSE);
    CHECK(fetched == 0);
    CHECK(points->Reset() == S_OK);
    ComPtr<IEnumConnectionPoints> clone;
    REQUIRE(points->Clone(&clone) == S_OK);
    CHECK(points->Skip(1) == S_OK);
    CHECK(points->Skip(1) == S_FALSE);
    CHECK(points->Skip(1) == S_FALSE); // it is still at the end
    CHECK(points->Next(0, found.data(), &fetched) == S_OK);
    ComPtr<IConnectionPoint> one;
    CHECK(clone->Next(1, &one, nullptr) == S_OK);
    CHECK(one);
    fetched = kPoison;
    CHECK(points->Next(1, nullptr, &fetched) == E_POINTER);
    CHECK(fetched == 0);
    CHECK(points->Next(2, found.data(), nullptr) == E_POINTER);
    CHECK(points->Clone(nullptr) == E_POINTER);
}

TEST_CASE("Advise: a sink without the event interface cannot connect", "[service]")
{
    const ConnectionFixture f;
    StandInObject other; // an IDispatch, but not one of the events
    DWORD cookie = kPoison;
    CHECK(EventsOf(f.service.Get())->Advise(&other, &cookie) == CONNECT_E_CANNOTCONNECT);
    CHECK(cookie == 0);
    CHECK(other.References() == 1);
}

TEST_CASE("Advise: a sink that hands out nothing for the event interface cannot connect",
          "[service]")
{
    const ConnectionFixture f;
    EmptySink sink;
    DWORD cookie = kPoison;
    CHECK(EventsOf(f.service.Get())->Advise(&sink, &cookie) == CONNECT_E_CANNOTCONNECT);
    CHECK(cookie == 0);
    CHECK(CookiesOf(EventsOf(f.service.Get()).Get()).empty());
}

TEST_CASE("Unadvise: what is nobody's cookie has no connection", "[service]")
{
    const ConnectionFixture f;
    const auto point = EventsOf(f.service.Get());
    CHECK(point->Unadvise(0) == CONNECT_E_NOCONNECTION);
    CHECK(point->Unadvise(1) == CONNECT_E_NOCONNECTION);
    RecordingSink sink;
    const DWORD cookie = Advise(f.service.Get(), &sink);
    CHECK(cookie != 0);
    CHECK(point->Unadvise(cookie + 1) == CONNECT_E_NOCONNECTION);
    CHECK(point->Unadvise(0xFFFFFFFF) == CONNECT_E_NOCONNECTION);
    CHECK(point->Unadvise(cookie) == S_OK);
    CHECK(point->Unadvise(cookie) == CONNECT_E_NOCONNECTION);
    CHECK(sink.References() == 1);
}

TEST_CASE("Advise: a cookie never comes back, and one sink may connect twice", "[service]")
{
    RecordingSink sink;
    const ConnectionFixture f;
    std::set<DWORD> cookies;
    for (int i = 0; i < 50; ++i)
    {
        const DWORD cookie = Advise(f.service.Get(), &sink);
        CHECK(cookies.insert(cookie).second);
        if (i % 2 == 0)
        {
            CHECK(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
        }
    }
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 25);
}

TEST_CASE("Advise: the number of sinks has no limit", "[service]")
{
    constexpr std::size_t kSinks = 5000;
    std::deque<RecordingSink> sinks(kSinks); // outlive the service, which still has half of them
    ConnectionFixture f;
    const auto point = EventsOf(f.service.Get());
    std::vector<DWORD> cookies;
    for (RecordingSink& sink : sinks)
    {
        DWORD cookie = 0;
        REQUIRE(point->Advise(&sink, &cookie) == S_OK);
        cookies.push_back(cookie);
    }
    CHECK(CookiesOf(point.Get()) == cookies);
    CHECK(Invoke(f.service.Get()) == S_OK);
    std::size_t told = 0;
    for (RecordingSink& sink : sinks)
    {
        told += sink.Count();
    }
    CHECK(told == kSinks);
    for (std::size_t i = 0; i < kSinks; i += 2)
    {
        REQUIRE(point->Unadvise(cookies[i]) == S_OK);
    }
    CHECK(CookiesOf(point.Get()).size() == kSinks / 2);
}

TEST_CASE("EnumConnections: hands out the sinks and their cookies", "[service]")
{
    std::deque<RecordingSink> sinks(3);
    const ConnectionFixture f;
    std::vector<DWORD> cookies;
    for (RecordingSink& sink : sinks)
    {
        cookies.push_back(Advise(f.service.Get(), &sink));
    }
    const auto point = EventsOf(f.service.Get());
    ComPtr<IEnumConnections> connections;
    REQUIRE(point->EnumConnections(&connections) == S_OK);
    std::array<CONNECTDATA, 4> data{};
    ULONG fetched = kPoison;
    CHECK(connections->Next(4, data.data(), &fetched) == S_FALSE);
    REQUIRE(fetched == 3);
    for (std::size_t i = 0; i < 3; ++i)
    {
        CHECK(data[i].dwCookie == cookies[i]);
        CHECK(data[i].pUnk == &sinks[i]);
        data[i].pUnk->Release();
    }
    CHECK(connections->Next(1, data.data(), &fetched) == S_FALSE);
    CHECK(connections->Reset() == S_OK);
    CHECK(connections->Skip(2) == S_OK);
    ComPtr<IEnumConnections> clone;
    REQUIRE(connections->Clone(&clone) == S_OK);
    CHECK(connections->Skip(2) == S_FALSE);
    CHECK(connections->Skip(1) == S_FALSE); // it is still at the end
    CHECK(clone->Next(1, data.data(), nullptr) == S_OK);
    CHECK(data[0].dwCookie == cookies[2]);
    data[0].pUnk->Release();
    fetched = kPoison;
    CHECK(connections->Next(1, nullptr, &fetched) == E_POINTER);
    CHECK(fetched == 0);
    CHECK(connections->Next(2, data.data(), nullptr) == E_POINTER);
    CHECK(connections->Clone(nullptr) == E_POINTER);

    // It walks over those that were connected when it was made.
    CHECK(clone->Reset() == S_OK);
    for (const DWORD cookie : cookies)
    {
        CHECK(point->Unadvise(cookie) == S_OK);
    }
    CHECK(clone->Next(3, data.data(), &fetched) == S_OK);
    for (ULONG i = 0; i < fetched; ++i)
    {
        data[i].pUnk->Release();
    }
    clone.Reset();
    connections.Reset();
    for (RecordingSink& sink : sinks)
    {
        CHECK(sink.References() == 1);
    }
}

TEST_CASE("EnumConnections: a sink of another apartment is handed out too", "[service]")
{
    RecordingSink sink;
    const ConnectionFixture f;
    const DWORD cookie = Advise(f.service.Get(), &sink);
    ApartmentThread other;
    bool same = false;
    DWORD found = 0;
    HRESULT event = E_FAIL;
    other.Do([&] { // the object is free-threaded; the sink belongs to the test's apartment
        ComPtr<IEnumConnections> connections;
        CONNECTDATA data{};
        if (EventsOf(f.service.Get())->EnumConnections(&connections) == S_OK &&
            connections->Next(1, &data, nullptr) == S_OK)
        {
            found = data.dwCookie;
            ComPtr<IDispatch> dispatch;
            same = data.pUnk == &sink;
            event = data.pUnk->QueryInterface(IID_PPV_ARGS(&dispatch));
            data.pUnk->Release();
        }
    });
    CHECK(found == cookie);
    CHECK_FALSE(same); // but through a proxy
    CHECK(event == S_OK);
    REQUIRE(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
    CHECK(sink.References() == 1);
}

TEST_CASE("The service: its end disconnects the sinks", "[service]")
{
    RecordingSink sink;
    ConnectionFixture f;
    Advise(f.service.Get(), &sink);
    Advise(f.service.Get(), &sink);
    CHECK(sink.References() > 1);
    f.service.Reset();
    CHECK(sink.References() == 1);
    CHECK(f.library.CanUnloadNow() == S_OK);
}
