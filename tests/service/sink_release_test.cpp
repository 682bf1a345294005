// How sinks are given back, whichever thread gives the last reference up, and whatever the
// apartment that they belong to does. The service is a part of this program.

#include "tests/service/worker_fixture.h"
#include "tests/support/recording_sink.h"

#include <catch.hpp>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <string>

using namespace velt::test;

namespace
{

/// A sink of an apartment of its own whose owner takes his time once it is given back.
class SlowSink
{
public:
    SlowSink(const WorkerFixture& f, std::function<HRESULT(DISPPARAMS*)> body)
        : sink(std::move(body))
    {
        m_apartment.Do([&] { cookie = Advise(f.service.Get(), &sink); });
        sink.OnRelease([this] {
            if (m_isSlow)
            {
                hasBegun.Set();
                hasWaited = !m_goOn.IsSetWithin(kWaitLimitMs);
            }
        });
    }

    SlowSink(const SlowSink&) = delete;
    SlowSink& operator=(const SlowSink&) = delete;

    ~SlowSink()
    {
        GoOn();
    }

    /// From now on a release takes until GoOn.
    void BeSlow()
    {
        m_isSlow = true;
    }

    /// Lets the release come back. Whether it had not done so by itself.
    bool GoOn()
    {
        m_goOn.Set();
        return !hasWaited;
    }

    RecordingSink sink;
    DWORD cookie = 0;
    TestEvent hasBegun;
    std::atomic<bool> hasWaited = false;

private:
    std::atomic<bool> m_isSlow = false;
    TestEvent m_goOn;
    ApartmentThread m_apartment; // last: it ends while the rest is there
};
/// Has the system's global interface table refuse to let one entry go, the first that it is asked
/// to.
class RefusingTable
{
public:
    explicit RefusingTable(HRESULT failure)
    {
        velt::ThrowIfFailed(::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr,
                                               CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&m_table)));
        m_slot = *reinterpret_cast<void***>(m_table.Get()) + kRevokeSlot;
        s_original = reinterpret_cast<Function>(*m_slot);
        s_failure = failure;
        s_refusals = 0;
        Write(reinterpret_cast<void*>(&RefusingTable::Revoke));
    }

    RefusingTable(const RefusingTable&) = delete;
    RefusingTable& operator=(const RefusingTable&) = delete;

    ~RefusingTable()
    {
        Write(reinterpret_cast<void*>(s_original));
    }

    int Refusals() const noexcept
    {
        return s_refusals;
    }

private:
    using Function = HRESULT(STDMETHODCALLTYPE*)(IGlobalInterfaceTable*, DWORD);

    static constexpr std::size_t kRevokeSlot = 4; // behind IUnknown's and the registering

    static HRESULT STDMETHODCALLTYPE Revoke(IGlobalInterfaceTable* table, DWORD entry)
    {
        return s_refusals.exchange(1) == 0 ? s_failure.load() : s_original(table, entry);
    }

    void Write(void* function) noexcept
    {
        DWORD protection = 0;
        ::VirtualProtect(m_slot, sizeof(*m_slot), PAGE_READWRITE, &protection);
        *m_slot = function;
        ::VirtualProtect(m_slot, sizeof(*m_slot), protection, &protection);
    }

    inline static Function s_original = nullptr;
    inline static std::atomic<HRESULT> s_failure = E_FAIL;
    inline static std::atomic<int> s_refusals = 0;

    Microsoft::WRL::ComPtr<IGlobalInterfaceTable> m_table;
    void** m_slot = nullptr;
};
} // namespace

TEST_CASE("Sinks: giving one of another apartment back holds nobody up", "[service]")
{
    const std::string who =
        GENERATE(as<std::string>(), "Release", "Unadvise", "Unadvise without COM", "the worker");
    CAPTURE(who);
    WorkerFixture f;
    RecordingSink next;
    std::function<void()> onEvent;
    SlowSink slow(f, [&](DISPPARAMS*) {
        onEvent();
        return S_OK;
    });
    const auto unadvise = [&] { return EventsOf(f.service.Get())->Unadvise(slow.cookie); };
    if (who == "the worker")
    {
        onEvent = [&] {
            unadvise(); // now the worker has the last reference
            slow.BeSlow();
        };
        Advise(f.service.Get(), &next);
        REQUIRE(f.Start() == S_OK);
        WorkerFixture::Await(
            [&] { return slow.hasBegun.IsSetWithin(0); }); // the next sink is called here
        REQUIRE(f.Start() == S_OK);
        WorkerFixture::Await([&] { return next.Count() == 2; });
    }
    else
    {
        slow.BeSlow();
        if (who == "Release")
        {
            f.service.Reset();
        }
        else
        {
            CHECK((who == "Unadvise" ? unadvise() : OnOtherThread(unadvise)) == S_OK);
        }
    }
    CHECK(slow.GoOn());
    f.service.Reset();
    // Given back all the same.
    WorkerFixture::Await([&] { return slow.sink.References() == 1 && next.References() == 1; });
}

TEST_CASE("Sinks: a sink of the calling apartment is given back at once", "[service]")
{
    WorkerFixture f;
    RecordingSink sink;
    const DWORD cookie = Advise(f.service.Get(), &sink);
    CHECK(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
    CHECK(sink.References() == 1);
}

TEST_CASE("Sinks: one that stays in the table is tried again, whatever the failure", "[service]")
{
    const HRESULT failure =
        GENERATE(CO_E_NOTINITIALIZED, RPC_E_DISCONNECTED, RPC_E_WRONG_THREAD, E_FAIL);
    CAPTURE(failure);
    WorkerFixture f;
    RecordingSink sink;
    const DWORD cookie = Advise(f.service.Get(), &sink);
    std::atomic<bool> fails = true;
    f.onTable = [&] { return fails.exchange(false) ? failure : S_FALSE; };
    CHECK(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
    CHECK_FALSE(fails);
    WorkerFixture::Await([&] { return sink.References() == 1; });
}

TEST_CASE("Sinks: one that the table does not let go is tried again, whatever the failure",
          "[service]")
{
    const HRESULT failure =
        GENERATE(CO_E_NOTINITIALIZED, RPC_E_DISCONNECTED, RPC_E_WRONG_THREAD, E_FAIL);
    CAPTURE(failure);
    WorkerFixture f;
    RecordingSink sink;
    const DWORD cookie = Advise(f.service.Get(), &sink);
    {
        const RefusingTable table(failure);
        CHECK(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
        CHECK(table.Refusals() == 1);
    }
    WorkerFixture::Await([&] { return sink.References() == 1; });
}

TEST_CASE("Sinks: many of another apartment need one thread to be given back", "[service]")
{
    std::deque<RecordingSink> sinks(200);
    WorkerFixture f;
    ApartmentThread other;
    other.Do([&] {
        for (RecordingSink& sink : sinks)
        {
            Advise(f.service.Get(), &sink);
        }
    });
    TestEvent goOn;
    sinks[0].OnRelease([&] { goOn.IsSetWithin(kWaitLimitMs); });
    // Each thread that nobody waits for keeps the library by this call.
    const ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)> threads(
        "kernel32.dll", [](DWORD flags, const wchar_t* name, HMODULE* module) {
            return decltype(threads)::Original(flags, name, module);
        });
    f.service.Reset();
    goOn.Set();
    WorkerFixture::Await([&] {
        return std::all_of(sinks.begin(), sinks.end(),
                           [](const RecordingSink& sink) { return sink.References() == 1; });
    });
    f.AwaitEnd();
    CHECK(threads.Calls() == 1);
}

TEST_CASE("Sinks: one that is given up while another is given back goes, too", "[service]")
{
    RecordingSink first;
    RecordingSink second;
    WorkerFixture f;
    ApartmentThread homeOfFirst;
    ApartmentThread homeOfSecond;
    DWORD firstCookie = 0;
    DWORD secondCookie = 0;
    homeOfFirst.Do([&] { firstCookie = Advise(f.service.Get(), &first); });
    homeOfSecond.Do([&] { secondCookie = Advise(f.service.Get(), &second); });
    std::atomic<HRESULT> given = E_PENDING;
    first.OnRelease([&] {
        if (given == E_PENDING)
        {
            given = EventsOf(f.service.Get())->Unadvise(secondCookie);
        }
    });
    CHECK(EventsOf(f.service.Get())->Unadvise(firstCookie) == S_OK);
    WorkerFixture::Await([&] { return first.References() == 1 && second.References() == 1; });
    CHECK(given == S_OK);
}

TEST_CASE("Sinks: without a thread to give them back they wait for the next one", "[service]")
{
    RecordingSink first;
    RecordingSink second;
    WorkerFixture f;
    ApartmentThread other;
    DWORD cookie = 0;
    other.Do([&] {
        cookie = Advise(f.service.Get(), &first);
        Advise(f.service.Get(), &second);
    });
    {
        const ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)> noThread(
            "kernel32.dll", [](DWORD, const wchar_t*, HMODULE*) { return FALSE; });
        CHECK(EventsOf(f.service.Get())->Unadvise(cookie) == S_OK);
        CHECK(noThread.Calls() == 1);
        CHECK(Invoke(f.service.Get()) == S_OK);
        CHECK(first.Count() == 0); // it is disconnected all the same
        CHECK(second.Count() == 1);
    }
    CHECK(first.References() == 2);
    f.service.Reset();
    WorkerFixture::Await([&] { return first.References() == 1 && second.References() == 1; });
}
