// Ten threads, two of them single-threaded apartments, that call everything of two services at
// once, with an update agent, for eight seconds or as many as the environment variable
// VELT_SOAK_SECONDS says.

#include "foundation/library_utils.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/velt_critical_section.h"
#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/process_usage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/stand_in_agent.h"
#include "tests/support/test_thread.h"
#include "update/update_agent_class.h"

#include <objbase.h>

#include <catch.hpp>

#include <array>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;
using velt::MakeBstr;

namespace
{
constexpr unsigned kMultithreaded = 8;
constexpr unsigned kSingleThreaded = 2; // each an apartment, whose sinks are called by the others

/// The texts of failing COM calls are looked for in this library, and Wine keeps twelve handles
/// each time that it is loaded and freed: here it stays loaded.
const CLibraryUtils::CLibraryUtilsImpl g_messages(velt::LoadSystemLibrary(L"QUARTZ.DLL"));

ULONGLONG SoakMs()
{
    const char* const seconds = std::getenv("VELT_SOAK_SECONDS");
    const int wanted = seconds ? std::atoi(seconds) : 0;
    return static_cast<ULONGLONG>(wanted > 0 ? wanted : 8) * 1000;
}

/// Two services that any thread may use and replace.
class Services
{
public:
    explicit Services(const ComponentLibrary& library) : m_library(library)
    {
        Replace(0);
        Replace(1);
    }

    ComPtr<IVeltHTTPService> Get(std::size_t index)
    {
        const VeltAutoCriticalSection lock(&m_lock);
        return m_services[index];
    }

    void Replace(std::size_t index)
    {
        ComPtr<IVeltHTTPService> made = m_library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
        const VeltAutoCriticalSection lock(&m_lock);
        std::swap(m_services[index], made); // the old one goes without the lock
        made.Swap(m_old);
    }

private:
    const ComponentLibrary& m_library;
    VeltCriticalSection m_lock;
    std::array<ComPtr<IVeltHTTPService>, 2> m_services;
    ComPtr<IVeltHTTPService> m_old;
};

/// One thread's calls. What must hold is counted, because checks belong to the main thread.
class Caller
{
public:
    Caller(Services& services, unsigned number)
        : m_services(services),
          m_random(number),
          m_url(MakeBstr(L"http://soak" + std::to_wstring(number % 3) + L".velt.example/")),
          m_name(MakeBstr(L"name" + std::to_wstring(number)))
    {
    }

    void Run(COINIT kind, ULONGLONG end)
    {
        ::CoInitializeEx(nullptr, kind);
        {
            const std::unique_ptr<StandInAgent> agent = AgentOf(kind);
            while (::GetTickCount64() < end ||
                   calls <= kLeastCalls) // however loaded the machine is
            {
                Call();
                ++calls;
                TakeCalls();
            }
        }
        ::CoUninitialize();
    }

    static constexpr unsigned kChoices = 16;
    static constexpr unsigned kLeastCalls = 10;

    void Call()
    {
        const unsigned choice = m_random() % 200;
        Do(choice < kChoices ? choice : choice % 11); // the slow ones less often
    }

    void Do(unsigned choice)
    {
        const std::size_t index = m_random() % 2;
        const ComPtr<IVeltHTTPService> service = m_services.Get(index);
        BSTR text = nullptr;
        VARIANT_BOOL flag = VARIANT_FALSE;
        switch (choice)
        {
        case 0:
            return Expect(service->WriteData(m_url.Get(), m_name.Get(), m_name.Get()));
        case 1:
            return ExpectText(service->ReadData(m_url.Get(), m_name.Get(), &text), text);
        case 2:
            return Expect(service->SafeWriteData(m_url.Get(), m_name.Get(), m_name.Get()));
        case 3:
            return ExpectText(service->SafeReadData(m_url.Get(), m_name.Get(), &text), text);
        case 4:
            return Expect(service->get_IsConnected(&flag));
        case 5:
            return ExpectText(service->get_Redirect(&text), text);
        case 6:
            return Expect(service->put_domain(m_random() % 2 ? nullptr : m_name.Get()));
        case 7:
            return ExpectText(service->GetDomain(&text), text);
        case 8:
            return Connect(service.Get());
        case 9:
            return Enumerate(service.Get());
        case 10:
            return Expect(Invoke(service.Get()));
        case 11:
            return Expect(service->IsUpdateOrMessageAvailable(m_name.Get(), m_name.Get(), 1033,
                                                              VARIANT_TRUE, &flag));
        case 12:
            return Expect(service->StartService());
        case 13:
            return Expect(
                service->StartUpdateService(m_name.Get(), m_name.Get(), 1033, m_name.Get()));
        case 14:
            return ExpectText(service->GetServiceTag(&text), text);
        default:
            return m_services.Replace(index);
        }
    }

    std::atomic<unsigned> calls = 0;
    std::atomic<unsigned> failures = 0;

private:
    /// The multithreaded apartment has one already.
    static std::unique_ptr<StandInAgent> AgentOf(COINIT kind)
    {
        return kind == COINIT_MULTITHREADED ? nullptr : std::make_unique<StandInAgent>();
    }

    /// What a single-threaded apartment does between its own calls; others give way.
    void TakeCalls() const noexcept
    {
        ApartmentThread::WaitPumping(m_never.Get(), 0);
    }

    void Expect(HRESULT hr)
    {
        failures += hr == S_OK ? 0 : 1;
    }

    void ExpectText(HRESULT hr, BSTR text)
    {
        Expect(hr);
        const velt::UniqueBstr owned(text);
    }

    /// Connects a sink, has it told, and takes it away again.
    void Connect(IVeltHTTPService* service)
    {
        RecordingSink sink;
        const DWORD cookie = Advise(service, &sink);
        Expect(Invoke(service));
        failures += sink.Count() >= 1 ? 0 : 1;
        Expect(EventsOf(service)->Unadvise(cookie));
        // Others may be at it still.
        const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
        while (sink.References() != 1)
        {
            if (::GetTickCount64() > limit)
            {
                std::abort(); // the sink must not go while somebody holds it
            }
            TakeCalls();
        }
    }

    void Enumerate(IVeltHTTPService* service)
    {
        ComPtr<IEnumConnections> connections;
        Expect(EventsOf(service)->EnumConnections(&connections));
        CONNECTDATA data{};
        while (connections->Next(1, &data, nullptr) == S_OK)
        {
            data.pUnk->Release();
        }
    }

    Services& m_services;
    std::minstd_rand m_random;
    const velt::UniqueKernelObject m_never{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    const velt::UniqueBstr m_url;
    const velt::UniqueBstr m_name;
};

void Soak(const ComponentLibrary& library, ULONGLONG forMs)
{
    Services services(library);
    std::deque<Caller> callers;
    std::deque<TestThread> threads;
    const ULONGLONG end = ::GetTickCount64() + forMs;
    for (unsigned i = 0; i < kMultithreaded + kSingleThreaded; ++i)
    {
        Caller& caller = callers.emplace_back(services, i + 1);
        const COINIT kind = i < kMultithreaded ? COINIT_MULTITHREADED : COINIT_APARTMENTTHREADED;
        threads.emplace_back([&caller, kind, end] { caller.Run(kind, end); });
    }
    for (TestThread& thread : threads)
    {
        thread.Join(static_cast<DWORD>(forMs) + kWaitLimitMs);
    }
    for (const Caller& caller : callers)
    {
        CHECK(caller.calls > Caller::kLeastCalls);
        CHECK(caller.failures == 0);
    }
}

void AwaitUnload(const ComponentLibrary& library)
{
    const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
    while (library.CanUnloadNow() != S_OK)
    {
        REQUIRE(::GetTickCount64() < limit);
        ::Sleep(10);
    }
}

/// How many handles the system itself keeps when a local server that is not there is asked for so
/// often.
std::size_t HandlesKeptByAsking(int count)
{
    const auto ask = [] {
        ComPtr<IUnknown> agent;
        REQUIRE(FAILED(::CoCreateInstance(velt::kUpdateAgentClass, nullptr, CLSCTX_LOCAL_SERVER,
                                          IID_PPV_ARGS(&agent))));
    };
    ask();
    const std::size_t before = CurrentUsage().handles;
    for (int i = 0; i < count; ++i)
    {
        ask();
    }
    const std::size_t after = CurrentUsage().handles;
    return after > before ? after - before : 0;
}
} // namespace

TEST_CASE("The service: ten threads call everything of two services", "[service]")
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
        const StandInAgent agent;
        const ComponentLibrary library;
        Soak(library, 1000); // what the platform keeps is there from then on
        AwaitUnload(library);
        const ProcessUsage before = CurrentUsage();
        Soak(library, SoakMs());
        AwaitUnload(library);
        const ProcessUsage after = CurrentUsage();
        CHECK(after.handles <= before.handles + 30); // threads of the platform come and go
        CHECK(AreHeapsValid());
        CHECK(agent.log.Count("CreateInstance") > 0);
        CHECK(agent.LiveObjects() == 0);
    }
    ::CoUninitialize();
}

TEST_CASE("The service: no call keeps handles of the process", "[service]")
{
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
        // Each of the calls asks for the update agent at most once; there is none.
        constexpr int kCalls = 60;
        const std::size_t kept = HandlesKeptByAsking(kCalls);
        if (kept > 20)
        {
            WARN("this system keeps " << kept << " handles of " << kCalls
                                      << " questions for an agent that is not there");
        }
        const ComponentLibrary library;
        Services services(library);
        Caller caller(services, 1);
        for (unsigned choice = 0; choice < Caller::kChoices; ++choice)
        {
            const auto repeat = [&] {
                for (int i = 0; i < kCalls; ++i)
                {
                    caller.Do(choice);
                }
            };
            repeat(); // what the platform keeps is there from then on
            const std::size_t before = CurrentUsage().handles;
            repeat();
            INFO("call " << choice);
            CHECK(CurrentUsage().handles <= before + kept + 20);
        }
        CHECK(caller.failures == 0);
    }
    ::CoUninitialize();
}
