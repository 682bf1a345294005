// The service's worker: queued requests, their events, and the service's end at any moment. The
// service is a part of this program, so that the period and the platform's answers can be chosen.

#include "service/velt_http_service.h"

#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/import_patch.h"
#include "tests/support/recording_sink.h"
#include "tests/support/test_module.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "update/update_agent_class.h"

#include <wininet.h>

#include <catch.hpp>

#include <atomic>
#include <functional>
#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
constexpr ULONGLONG kAtOnceMs = 2500; // half of what a worker that does not end is given
constexpr DWORD kPeriodMs = 20;
constexpr char kTerminating[] = "thread_template::stop WaitForSingleObject m_hWaitThreadEvent "
                                "returned 258: Terminating Thread!!!";

/// A service whose worker wakes every 20 ms, an agent that is as the test says, and a connection.
struct Fixture
{
    Fixture()
    {
        s_isOnline = true;
        s_questions = 0;
        velt::ThrowIfFailed(velt::CreateComObject<CVeltHTTPService>(
            nullptr, __uuidof(IVeltHTTPService), reinterpret_cast<void**>(service.GetAddressOf())));
    }

    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    ~Fixture()
    {
        service.Reset();
        AwaitEnd();
    }

    /// Waits until nothing of the service is left; takes calls meanwhile.
    void AwaitEnd()
    {
        Await([&] { return module.LockCount() == 0; });
    }

    static void Await(const std::function<bool()>& condition)
    {
        const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const ULONGLONG end = ::GetTickCount64() + kWaitLimitMs;
        while (!condition())
        {
            if (::GetTickCount64() > end)
            {
                throw std::runtime_error("it does not happen");
            }
            ApartmentThread::WaitPumping(never.Get(), 2);
        }
    }

    HRESULT Start(const wchar_t* guid = kGuid) const
    {
        return service->StartUpdateService(velt::MakeBstr(guid).Get(), velt::MakeBstr(L"1.0").Get(),
                                           1031, velt::MakeBstr(L"A product").Get());
    }

    bool IsConnected() const
    {
        VARIANT_BOOL connected = 0x5555;
        velt::ThrowIfFailed(service->get_IsConnected(&connected));
        if (connected != VARIANT_TRUE && connected != VARIANT_FALSE)
        {
            throw std::runtime_error("no VARIANT_BOOL");
        }
        return connected == VARIANT_TRUE;
    }

    /// Whether the system says that it is online, and how often it was asked.
    inline static std::atomic<bool> s_isOnline = true;
    inline static std::atomic<int> s_questions = 0;

    static BOOL WINAPI GetConnectedState(DWORD* flags, DWORD) noexcept
    {
        *flags = INTERNET_CONNECTION_LAN;
        ++s_questions;
        return s_isOnline ? TRUE : FALSE;
    }

    const ComApartment apartment;
    TraceRecorder trace;
    TestModule module;

    // as asked for by the worker
    std::atomic<LONG> periodMs = 0;
    std::atomic<LONGLONG> due = 0;

    // set by the test; the calls come from the worker as well
    std::atomic<DWORD> stepPeriodMs = kPeriodMs;
    std::function<HRESULT()> onAgent; // in place of the agent, which is not there otherwise

    ImportPatch<"SetWaitableTimer", decltype(::SetWaitableTimer)> timer{
        "kernel32.dll", [this](HANDLE handle, const LARGE_INTEGER* dueTime, LONG period,
                               PTIMERAPCROUTINE routine, void* argument, BOOL resume) {
            due = dueTime->QuadPart;
            periodMs = period;
            LARGE_INTEGER soon;
            soon.QuadPart = -10'000LL * stepPeriodMs;
            return decltype(timer)::Original(handle, &soon, static_cast<LONG>(stepPeriodMs.load()),
                                             routine, argument, resume);
        }};
    ImportPatch<"GetProcAddress", decltype(::GetProcAddress)> online{
        "kernel32.dll", [](HMODULE library, const char* name) {
            return std::string(name) == "InternetGetConnectedState"
                       ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&GetConnectedState))
                       : decltype(online)::Original(library, name);
        }};
    ImportPatch<"CoCreateInstance", decltype(::CoCreateInstance)> agent{
        "ole32.dll",
        [this](REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object) {
            if (clsid == velt::kUpdateAgentClass && onAgent)
            {
                return onAgent();
            }
            return decltype(agent)::Original(clsid, outer, context, iid, object);
        }};

    ComPtr<IVeltHTTPService> service;
};
} // namespace

TEST_CASE("StartUpdateService: the worker does the work one period later", "[service]")
{
    Fixture f;
    f.onAgent = [] { return REGDB_E_CLASSNOTREG; };
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    CHECK(sink.Count() == 0); // the tick of this thread only arms the queue
    Fixture::Await([&] { return sink.Count() == 1; });
    CHECK(f.periodMs == 30'000);
    CHECK(f.due == -300'000'000);
    CHECK(sink.Events()[0].event == self_upgrade);
    CHECK((sink.Events()[0].text == kGuid));
    CHECK(f.trace.Count("IS_upgrade_request::StartUpdateService - params = "
                        "{{0F8FAD5B-D9CB-469F-A165-70867728950E}, 1.0, 1031, A product}") == 1);
    CHECK(f.trace.Count("CVeltHTTPService::StartUpdateService - enter") == 1);
    CHECK(f.trace.Count("queue_manager::begin - enter") == 1);
    CHECK(f.agent.Calls() >= 1);
    const auto messages = f.trace.Messages();
    for (const auto& message : messages)
    {
        const bool isWork = message.text == "IS_upgrade_request::DoWork - enter";
        CHECK((!isWork || message.thread != ::GetCurrentThreadId()));
    }
}

TEST_CASE("StartService: is StartUpdateService for the component itself", "[service]")
{
    Fixture f;
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.service->StartService() == S_OK);
    CHECK(f.trace.Count("CVeltHTTPService::StartService - enter") == 1);
    CHECK(f.trace.Count("CVeltHTTPService::StartUpdateService - enter") == 1);
    CHECK(f.trace.Count("IS_upgrade_request::StartUpdateService - params = "
                        "{{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}, 3.0, 1033, }") == 1);
    Fixture::Await([&] { return sink.Count() == 1; });
    CHECK((sink.Events()[0].text == L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}"));
}

TEST_CASE("IsConnected: only after a step that found the machine online", "[service]")
{
    Fixture f;
    Fixture::s_isOnline = false;
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK_FALSE(f.IsConnected()); // 0: nothing is known
    CHECK(f.Start() == S_OK);
    CHECK_FALSE(f.IsConnected());
    Fixture::Await([&] { return Fixture::s_questions >= 3; }); // 2: under way, tried again
    CHECK_FALSE(f.IsConnected());
    CHECK(sink.Count() == 0); // not at each retry
    Fixture::s_isOnline = true;
    Fixture::Await([&] { return sink.Count() == 1; });
    CHECK(f.IsConnected()); // 3
    const int calls = Fixture::s_questions;
    // The request has left the queue; another one is needed for another answer.
    Fixture::s_isOnline = false;
    CHECK(f.Start() == S_OK);
    Fixture::Await([&] { return Fixture::s_questions > calls; });
    Fixture::Await([&] { return !f.IsConnected(); });
    CHECK(sink.Count() == 1);
}

TEST_CASE("StartUpdateService: the worker is started once and serves every request", "[service]")
{
    Fixture f;
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    for (const wchar_t* guid : {L"a", L"b", L"c"})
    {
        CHECK(f.Start(guid) == S_OK);
    }
    Fixture::Await([&] { return sink.Count() == 3; });
    CHECK(f.timer.Calls() == 1);
    CHECK(f.trace.Count("queue_manager::begin - enter") == 1);
    const auto events = sink.Events();
    CHECK((events[0].text + events[1].text + events[2].text == L"abc"));
}

TEST_CASE("StartUpdateService: a worker that cannot be started is not told", "[service]")
{
    const ComApartment apartment;
    TestModule module;
    ComPtr<IVeltHTTPService> service;
    {
        ImportPatch<"CreateWaitableTimerW", decltype(::CreateWaitableTimerW)> none(
            "kernel32.dll", [](SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) { return HANDLE{}; });
        REQUIRE(velt::CreateComObject<CVeltHTTPService>(
                    nullptr, __uuidof(IVeltHTTPService),
                    reinterpret_cast<void**>(service.GetAddressOf())) == S_OK);
        CHECK(none.Calls() == 1);
    }
    CHECK(service->StartService() == S_OK);
    CHECK(service->StartService() == S_OK);
    service.Reset();
    CHECK(module.LockCount() == 0);
}

TEST_CASE("The service: released while its worker is idle or armed", "[service]")
{
    const bool armed = GENERATE(true, false);
    Fixture f;
    f.stepPeriodMs = armed ? 600'000 : kPeriodMs;
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    if (!armed)
    {
        // Heard, and no longer held for the event: by the test and the service alone.
        Fixture::Await([&] { return sink.Count() == 1 && sink.References() == 2; });
    }
    const ULONGLONG before = ::GetTickCount64();
    f.service.Reset();
    CHECK(::GetTickCount64() - before < kAtOnceMs);
    CHECK(sink.References() == 1);
    f.AwaitEnd();
    CHECK(sink.Count() == (armed ? 0 : 1));
}

TEST_CASE("The service: released while its worker is in a step", "[service]")
{
    Fixture f;
    TestEvent inStep;
    TestEvent goOn;
    f.onAgent = [&] {
        inStep.Set();
        goOn.Wait();
        return REGDB_E_CLASSNOTREG;
    };
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    inStep.Wait();
    const ULONGLONG before = ::GetTickCount64();
    f.service.Reset();
    CHECK(::GetTickCount64() - before < kAtOnceMs); // somebody else waits
    CHECK(sink.References() == 1);
    CHECK(f.module.LockCount() > 0);
    goOn.Set();
    f.AwaitEnd();
    CHECK(sink.Count() == 0);
    CHECK(f.trace.Count(kTerminating) == 0);
}

TEST_CASE("The service: a worker that stays in its step is ended by force", "[service]")
{
    Fixture f;
    TestEvent inStep;
    TestEvent never;
    f.onAgent = [&] {
        inStep.Set();
        ::Sleep(INFINITE);
        return S_OK;
    };
    CHECK(f.Start() == S_OK);
    inStep.Wait();
    const ULONGLONG before = ::GetTickCount64();
    f.service.Reset();
    CHECK(::GetTickCount64() - before < kAtOnceMs);
    f.AwaitEnd();
    CHECK(::GetTickCount64() - before >= 5000);
    CHECK(f.trace.Count(kTerminating) == 1);
}

TEST_CASE("The service: its last reference given up by a sink on the worker", "[service]")
{
    Fixture f;
    std::atomic<bool> released = false;
    ApartmentThread other(COINIT_MULTITHREADED); // whose sinks run on threads of the platform
    IVeltHTTPService* last = nullptr;
    DWORD thread = 0;
    // Its own apartment is the worker's, so that it is called there: it connects inside a step.
    RecordingSink sink([&](DISPPARAMS*) {
        thread = ::GetCurrentThreadId();
        last->Release();
        released = true;
        return S_OK;
    });
    std::atomic<bool> advised = false;
    std::atomic<DWORD> worker = 0;
    f.onAgent = [&] {
        worker = ::GetCurrentThreadId();
        Advise(last, &sink);
        advised = true;
        return REGDB_E_CLASSNOTREG;
    };
    last = f.service.Get();
    CHECK(f.Start() == S_OK);
    static_cast<void>(f.service.Detach());
    const ULONGLONG before = ::GetTickCount64();
    Fixture::Await([&] { return released.load(); });
    f.AwaitEnd();
    CHECK(::GetTickCount64() - before < kAtOnceMs);
    CHECK(advised);
    CHECK(thread == worker);
    CHECK(sink.References() == 1);
    CHECK(f.trace.Count(kTerminating) == 0);
}

TEST_CASE("The service: no thread to wait for the worker costs memory only", "[service]")
{
    Fixture f;
    std::atomic<bool> released = false;
    IVeltHTTPService* const last = f.service.Get();
    std::atomic<bool> fails = false;
    ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)> noThread(
        "kernel32.dll", [&](DWORD flags, const wchar_t* name, HMODULE* module) {
            return fails ? FALSE : decltype(noThread)::Original(flags, name, module);
        });
    RecordingSink sink([&](DISPPARAMS*) {
        fails = true;
        last->Release();
        fails = false;
        released = true;
        return S_OK;
    });
    velt::UniqueKernelObject worker;
    f.onAgent = [&] {
        worker.Reset(
            ::OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION, FALSE, ::GetCurrentThreadId()));
        Advise(last, &sink);
        return REGDB_E_CLASSNOTREG;
    };
    CHECK(f.Start() == S_OK);
    static_cast<void>(f.service.Detach());
    Fixture::Await([&] { return released.load(); });
    CHECK(::WaitForSingleObject(worker.Get(), kWaitLimitMs) == WAIT_OBJECT_0); // ends by itself
    CHECK(f.trace.Count(kTerminating) == 0);
    CHECK(sink.References() == 1);
    f.AwaitEnd();
}

TEST_CASE("The service: released by an apartment that its worker is calling", "[service]")
{
    Fixture f;
    TestEvent firing;
    // Not taken before this thread takes calls, which it does not while it releases.
    RecordingSink sink;
    RecordingSink first([&](DISPPARAMS*) {
        firing.Set();
        return S_OK;
    });
    ApartmentThread other;
    other.Do([&] { Advise(f.service.Get(), &first); });
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    firing.Wait(); // the other apartment's sink was called, this one's is next
    const ULONGLONG before = ::GetTickCount64();
    f.service.Reset();
    CHECK(::GetTickCount64() - before < kAtOnceMs);
    f.AwaitEnd();
    CHECK(::GetTickCount64() - before < kAtOnceMs);
    CHECK(f.trace.Count(kTerminating) == 0);
    CHECK(sink.References() == 1);
    CHECK(sink.Count() <= 1); // told, or disconnected in time
}

TEST_CASE("The service: a sink that blocks holds up the worker only", "[service]")
{
    Fixture f;
    TestEvent blocked;
    TestEvent goOn;
    RecordingSink sink([&](DISPPARAMS*) {
        blocked.Set();
        goOn.Wait();
        return S_OK;
    });
    ApartmentThread other;
    other.Do([&] { Advise(f.service.Get(), &sink); });
    CHECK(f.Start() == S_OK);
    blocked.Wait();
    CHECK(f.IsConnected()); // the step is over
    CHECK(f.Start() == S_OK);
    goOn.Set();
    Fixture::Await([&] { return sink.Count() == 2; });
}

TEST_CASE("The service: two of them have workers of their own", "[service]")
{
    Fixture f;
    ComPtr<IVeltHTTPService> second;
    REQUIRE(velt::CreateComObject<CVeltHTTPService>(
                nullptr, __uuidof(IVeltHTTPService),
                reinterpret_cast<void**>(second.GetAddressOf())) == S_OK);
    RecordingSink sink;
    RecordingSink other;
    Advise(f.service.Get(), &sink);
    Advise(second.Get(), &other);
    CHECK(f.Start(L"first") == S_OK);
    CHECK(second->StartService() == S_OK);
    Fixture::Await([&] { return sink.Count() == 1 && other.Count() == 1; });
    CHECK(f.timer.Calls() == 2);
    second.Reset();
    CHECK(f.Start(L"again") == S_OK);
    Fixture::Await([&] { return sink.Count() == 2; });
    CHECK(other.Count() == 1);
}
