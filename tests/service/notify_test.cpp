// What sinks of every kind hear, and what they cannot do to others. Through the built library.

#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/recording_sink.h"
#include "tests/support/test_thread.h"

#include <catch.hpp>

#include <memory>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
struct NotifyFixture
{
    const ComApartment apartment;
    const ComponentLibrary library;
    ComPtr<IVeltHTTPService> service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
};

/// A sink whose events are not its default dispatch interface: that one belongs to something else.
class TwoFacedSink final : public IUnknown
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        if (iid == IID_IUnknown)
        {
            *object = this;
            AddRef();
            return S_OK;
        }
        return (iid == DIID_IVeltHTTPServiceEvents ? events : other).QueryInterface(iid, object);
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return 2; // in the test's scope
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return 1;
    }

    RecordingSink events;
    RecordingSink other;
};
} // namespace

TEST_CASE("Notify: InvokeUpdate fires once, on its thread, with the GUID", "[service]")
{
    RecordingSink sink;
    const NotifyFixture f;
    Advise(f.service.Get(), &sink);
    CHECK(Invoke(f.service.Get()) == S_OK);
    const auto events = sink.Events();
    REQUIRE(events.size() == 1);
    CHECK(events[0].thread == ::GetCurrentThreadId());
    CHECK(events[0].member == 1);
    CHECK(events[0].event == self_upgrade);
    CHECK((events[0].text == kGuid));
}

TEST_CASE("Notify: a null and an empty GUID are an empty text", "[service]")
{
    RecordingSink sink;
    const NotifyFixture f;
    Advise(f.service.Get(), &sink);
    CHECK(f.service->InvokeUpdate(nullptr, nullptr, 0, nullptr) == S_OK);
    CHECK(Invoke(f.service.Get(), L"") == S_OK);
    REQUIRE(sink.Count() == 2);
    CHECK((sink.Events()[0].text.empty() && sink.Events()[0].event == self_upgrade));
    CHECK((sink.Events()[1].text.empty() && sink.Events()[1].event == self_upgrade));
}

TEST_CASE("Notify: the question for updates fires nothing", "[service]")
{
    RecordingSink sink;
    const NotifyFixture f;
    Advise(f.service.Get(), &sink);
    VARIANT_BOOL available = VARIANT_TRUE;
    const velt::UniqueBstr guid = velt::MakeBstr(kGuid);
    CHECK(f.service->IsUpdateOrMessageAvailable(guid.Get(), nullptr, 1033, VARIANT_TRUE,
                                                &available) == S_OK);
    CHECK(sink.Count() == 0);
}

TEST_CASE("Notify: a sink that fails harms no other one", "[service]")
{
    const NotifyFixture f;
    const HRESULT failure = GENERATE(E_FAIL, DISP_E_EXCEPTION, E_OUTOFMEMORY, RPC_E_DISCONNECTED);
    RecordingSink before;
    RecordingSink failing([&](DISPPARAMS*) { return failure; });
    RecordingSink after;
    Advise(f.service.Get(), &before);
    Advise(f.service.Get(), &failing);
    Advise(f.service.Get(), &after);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(before.Count() == 2);
    CHECK(failing.Count() == 2);
    CHECK(after.Count() == 2);
}

TEST_CASE("Notify: what a sink answers is given back", "[service]")
{
    const NotifyFixture f;
    RecordingSink sink;
    sink.AnswerItself();
    Advise(f.service.Get(), &sink);
    const LONG before = sink.References();
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 2);
    CHECK(sink.References() == before);
}

TEST_CASE("Notify: a sink that writes to its arguments harms no other one", "[service]")
{
    const NotifyFixture f;
    RecordingSink writing([](DISPPARAMS* parameters) {
        parameters->rgvarg[0].vt = VT_EMPTY;
        parameters->rgvarg[0].bstrVal = nullptr;
        parameters->rgvarg[1].lVal = 99;
        parameters->rgvarg = nullptr;
        parameters->cArgs = 77;
        return S_OK;
    });
    RecordingSink after;
    Advise(f.service.Get(), &writing);
    Advise(f.service.Get(), &after);
    CHECK(Invoke(f.service.Get()) == S_OK);
    REQUIRE(after.Count() == 1);
    CHECK((after.Events()[0].text == kGuid));
    CHECK(after.Events()[0].event == self_upgrade);
}

TEST_CASE("Notify: a sink that unadvises itself is not told again", "[service]")
{
    const NotifyFixture f;
    DWORD cookie = 0;
    HRESULT unadvised = E_FAIL;
    RecordingSink sink([&](DISPPARAMS*) {
        unadvised = EventsOf(f.service.Get())->Unadvise(cookie);
        return S_OK;
    });
    RecordingSink after;
    cookie = Advise(f.service.Get(), &sink);
    Advise(f.service.Get(), &after);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(unadvised == S_OK);
    CHECK(sink.References() == 1);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 1);
    CHECK(after.Count() == 2);
}

TEST_CASE("Notify: a sink that another one unadvises is not told any more", "[service]")
{
    const NotifyFixture f;
    DWORD cookie = 0;
    RecordingSink first([&](DISPPARAMS*) { return EventsOf(f.service.Get())->Unadvise(cookie); });
    RecordingSink second;
    RecordingSink third;
    Advise(f.service.Get(), &first);
    cookie = Advise(f.service.Get(), &second);
    Advise(f.service.Get(), &third);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(second.Count() == 0);
    CHECK(second.References() == 1);
    CHECK(third.Count() == 1);
}

TEST_CASE("Notify: a sink that joins during the event hears the next one", "[service]")
{
    RecordingSink joining;
    const NotifyFixture f;
    bool joined = false;
    RecordingSink first([&](DISPPARAMS*) {
        if (!joined)
        {
            joined = true;
            Advise(f.service.Get(), &joining);
        }
        return S_OK;
    });
    Advise(f.service.Get(), &first);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(joining.Count() == 0);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(joining.Count() == 1);
}

TEST_CASE("Notify: a sink may give up the last reference of the service", "[service]")
{
    NotifyFixture f;
    RecordingSink sink([&](DISPPARAMS*) {
        f.service.Reset();
        return S_OK;
    });
    RecordingSink after;
    Advise(f.service.Get(), &sink);
    Advise(f.service.Get(), &after);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 1);
    CHECK(after.Count() == 1);
    CHECK(sink.References() == 1);
    CHECK(after.References() == 1);
    CHECK(f.library.CanUnloadNow() == S_OK);
}

TEST_CASE("Notify: a sink may start the work anew", "[service]")
{
    const NotifyFixture f;
    int left = 3;
    RecordingSink sink([&](DISPPARAMS*) { return left-- > 0 ? Invoke(f.service.Get()) : S_OK; });
    Advise(f.service.Get(), &sink);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 4);
}

TEST_CASE("Notify: the object is not locked meanwhile", "[service]")
{
    const NotifyFixture f;
    RecordingSink sink([&](DISPPARAMS*) {
        // Another thread gets through while this sink is at work.
        return OnOtherThread([&] {
            const ComApartment apartment;
            VARIANT_BOOL connected = VARIANT_TRUE;
            return f.service->get_IsConnected(&connected);
        });
    });
    Advise(f.service.Get(), &sink);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 1);
}

TEST_CASE("Notify: a sink of another apartment is called in its own", "[service]")
{
    const COINIT kind = GENERATE(COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED);
    RecordingSink sink;
    RecordingSink own;
    const NotifyFixture f;
    ApartmentThread other(kind);
    DWORD cookie = 0;
    other.Do([&] { cookie = Advise(f.service.Get(), &sink); });
    Advise(f.service.Get(), &own);
    CHECK(Invoke(f.service.Get()) == S_OK);
    REQUIRE(sink.Count() == 1);
    CHECK(sink.Events()[0].thread != ::GetCurrentThreadId());
    if (kind == COINIT_APARTMENTTHREADED)
    {
        CHECK(sink.Events()[0].thread == other.Id());
    }
    CHECK(sink.Events()[0].event == self_upgrade);
    CHECK((sink.Events()[0].text == kGuid));
    CHECK(own.Count() == 1);
    other.Do([&] { EventsOf(f.service.Get())->Unadvise(cookie); });
    CHECK(sink.References() == 1);
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(sink.Count() == 1);
}

TEST_CASE("Notify: an agile sink is called on the firing thread, whatever its apartment does",
          "[service]")
{
    const COINIT kind = GENERATE(COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED);
    RecordingSink sink;
    sink.MakeAgile();
    const NotifyFixture f;
    ApartmentThread other(kind);
    DWORD cookie = 0;
    other.Do([&] { cookie = Advise(f.service.Get(), &sink); });
    TestEvent goOn;
    other.Begin([&] { goOn.IsSetWithin(kWaitLimitMs); }); // takes no calls meanwhile
    CHECK(Invoke(f.service.Get()) == S_OK);
    const DWORD withoutCom = OnOtherThread([&] {
        Invoke(f.service.Get());
        return ::GetCurrentThreadId();
    });
    ComPtr<IEnumConnections> connections;
    REQUIRE(EventsOf(f.service.Get())->EnumConnections(&connections) == S_OK);
    CONNECTDATA data{};
    REQUIRE(connections->Next(1, &data, nullptr) == S_OK);
    CHECK(data.pUnk == &sink); // and no proxy
    data.pUnk->Release();
    connections.Reset();
    goOn.Set();
    other.Finish();
    other.End(); // it needs no apartment
    CHECK(Invoke(f.service.Get()) == S_OK);
    const auto events = sink.Events();
    REQUIRE(events.size() == 3);
    CHECK(events[0].thread == ::GetCurrentThreadId());
    CHECK(events[1].thread == withoutCom);
    CHECK(events[2].thread == ::GetCurrentThreadId());
    CHECK(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
    CHECK(sink.References() == 1);
}

TEST_CASE("Notify: a sink whose apartment is gone is passed over", "[service]")
{
    RecordingSink gone;
    RecordingSink after;
    const NotifyFixture f;
    {
        ApartmentThread other;
        other.Do([&] { Advise(f.service.Get(), &gone); });
        Advise(f.service.Get(), &after);
    }
    CHECK(Invoke(f.service.Get()) == S_OK);
    CHECK(gone.Count() == 0);
    CHECK(after.Count() == 1);
    // A new apartment may look like the old one.
    ApartmentThread another;
    HRESULT result = E_FAIL;
    another.Do([&] { result = Invoke(f.service.Get()); });
    CHECK(result == S_OK);
    CHECK(gone.Count() == 0);
    CHECK(after.Count() == 2);
}

TEST_CASE("Notify: a thread without COM fires and reaches nobody", "[service]")
{
    RecordingSink sink;
    const NotifyFixture f;
    Advise(f.service.Get(), &sink);
    CHECK(OnOtherThread([&] { return Invoke(f.service.Get()); }) == S_OK);
    CHECK(sink.Count() == 0);
}

TEST_CASE("Notify: a thread without COM reaches sinks while there are threads with it", "[service]")
{
    RecordingSink sink;
    const NotifyFixture f;
    ApartmentThread other(COINIT_MULTITHREADED);
    DWORD cookie = 0;
    other.Do([&] { cookie = Advise(f.service.Get(), &sink); });
    CHECK(OnOtherThread([&] { return Invoke(f.service.Get()); }) == S_OK);
    CHECK(sink.Count() == 1); // the system lends it the multithreaded apartment
    other.Do([&] { EventsOf(f.service.Get())->Unadvise(cookie); });
    CHECK(sink.References() == 1);
}

TEST_CASE("Notify: a sink is called on the interface of the events", "[service]")
{
    TwoFacedSink sink;
    const NotifyFixture f;
    Advise(f.service.Get(), &sink);
    CHECK(Invoke(f.service.Get()) == S_OK);
    ApartmentThread other; // and from there, too
    other.Do([&] { Invoke(f.service.Get()); });
    CHECK(sink.events.Count() == 2);
    CHECK(sink.other.Count() == 0);
}

TEST_CASE("Notify: sinks of one service hear nothing of another one", "[service]")
{
    const NotifyFixture f;
    const auto other = f.library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(Invoke(other.Get()) == S_OK);
    CHECK(sink.Count() == 0);
}
